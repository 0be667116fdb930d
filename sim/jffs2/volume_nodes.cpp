// A JFFS2 file system in use: which nodes hold what, and what of it a start finds.
#include "sim/jffs2/jffs2_nodes.hpp"
#include "sim/jffs2/volume.hpp"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace vcam::jffs2 {

void Volume::load(Geometry geometry, std::span<const uint8_t> image, const std::set<uint32_t>& bad)
{
    const Log log = scan(image);
    highest_ino_ = log.highest_ino;
    log_ = std::make_unique<FlashLog>(medium_, static_cast<NodeOwner&>(*this), geometry, image, bad);
    files_[kRoot].links = 1;
    for (const auto& [ino, inode] : log.inodes) load_file(ino, inode);
    load_names(log);
    std::vector<uint32_t> nameless;
    for (const auto& [ino, f] : files_)
        if (f.links == 0) nameless.push_back(ino);
    for (const uint32_t ino : nameless) forget(ino);
}

void Volume::load_file(uint32_t ino, const Inode& inode)
{
    File& f = files_[ino];
    f.damaged =
        inode.nodes.empty() || !has_memory(f, inode.newest().isize) || !contents(inode, f.content).empty();
    if (f.damaged) { // its nodes stay as they are
        for (const auto& [version, node] : inode.nodes) {
            log_->keep(node.position, node.size);
            use(node.position, ino);
        }
        f.mode = 0;
        return;
    }
    const DataNode& newest = inode.newest();
    f.mode = newest.mode;
    f.uid = newest.uid;
    f.gid = newest.gid;
    f.mtime = newest.mtime;
    f.version = inode.version();
    if (is_plain(f.mode)) f.content.resize(newest.isize);
    for (const auto& [version, node] : inode.nodes) {
        log_->keep(node.position, node.size);
        use(node.position, ino);
        const uint32_t end = std::min(node.offset + node.dsize, newest.isize);
        if (is_plain(f.mode) && node.offset < end) cover(ino, f, node.offset, end, node.position);
        if (version == f.version) {
            f.newest = node.position;
            use(f.newest, ino);
        }
        unuse(node.position);
    }
}

// Folders and names that a damaged log has in a ring, or without their inode, are left out.
void Volume::load_names(const Log& log)
{
    for (const WrittenName& written : log.names) {
        if (written.entry.ino == 0) continue;
        const Place place(written.folder, written.name);
        written_[written.entry.position] = place;
        ++name_count_[place];
    }
    std::vector<uint32_t> folders = {kRoot};
    while (!folders.empty()) {
        const uint32_t folder = folders.back();
        folders.pop_back();
        const auto names = log.folders.find(folder);
        if (names == log.folders.end()) continue;
        for (const auto& [name, entry] : names->second) {
            File& parent = files_[folder];
            if (entry.version > parent.version && entry.mtime != 0) parent.mtime = entry.mtime;
            parent.version = std::max(parent.version, entry.version);
            const Place place(folder, name);
            File* f = entry.ino ? file(entry.ino) : nullptr;
            if (f && S_ISDIR(f->mode) && f->links > 0) f = nullptr;
            if (!f && entry.ino) continue;
            log_->keep(entry.position, entry.size);
            owners_[entry.position].name = place;
            if (!f) {
                removals_[place] = entry.position;
                continue;
            }
            parent.names[name] = {entry.ino, entry.position, ++last_order_};
            parent.order[last_order_] = name;
            ++f->links;
            f->parent = folder;
            if (S_ISDIR(f->mode)) folders.push_back(entry.ino);
        }
    }
}

Volume::File* Volume::file(uint32_t ino)
{
    const auto found = files_.find(ino);
    return found == files_.end() ? nullptr : &found->second;
}

const Volume::File* Volume::file(uint32_t ino) const
{
    const auto found = files_.find(ino);
    return found == files_.end() ? nullptr : &found->second;
}

DataNode Volume::head_of(const File& f)
{
    const uint32_t size = S_ISDIR(f.mode) ? 0 : uint32_t(f.content.size());
    return {f.mode, f.uid, f.gid, f.mtime, size, 0, 0, kNone, {}, 0, 0};
}

// --- which node is needed -----------------------------------------------------------------

void Volume::use(uint32_t at, uint32_t ino)
{
    Owner& owner = owners_[at];
    owner.ino = ino;
    ++owner.uses;
}

void Volume::unuse(uint32_t at)
{
    const auto owner = owners_.find(at);
    if (owner == owners_.end() || --owner->second.uses > 0) return;
    owners_.erase(owner);
    log_->drop(at);
}

// Takes [begin, end) out of a piece.
void Volume::take_piece(File& f, std::map<uint32_t, Piece>::iterator piece, uint32_t begin, uint32_t end)
{
    const uint32_t first = piece->first;
    const Piece old = piece->second;
    const bool before = first < begin;
    const bool after = end < old.end;
    if (before) {
        piece->second.end = begin;
    } else {
        f.pieces.erase(piece);
    }
    if (after) f.pieces[end] = old;
    if (before && after) ++owners_[old.at].uses;
    if (!before && !after) unuse(old.at);
}

void Volume::cover(uint32_t ino, File& f, uint32_t begin, uint32_t end, uint32_t at)
{
    auto piece = f.pieces.upper_bound(begin);
    if (piece != f.pieces.begin()) --piece;
    while (piece != f.pieces.end() && piece->first < end) {
        const auto next = std::next(piece);
        if (piece->second.end > begin) take_piece(f, piece, begin, end);
        piece = next;
    }
    f.pieces[begin] = {end, at};
    use(at, ino);
}

// An inode that is gone; its nodes are rubbish.
void Volume::forget(uint32_t ino)
{
    const auto found = files_.find(ino);
    if (found == files_.end()) return;
    File& f = found->second;
    for (const auto& [begin, piece] : f.pieces) unuse(piece.at);
    if (f.newest != kNowhere) unuse(f.newest);
    files_.erase(found);
}

void Volume::unname(uint32_t ino)
{
    File* f = file(ino);
    if (!f) return;
    if (f->links > 0) --f->links;
    if (f->links == 0 && f->held == 0) forget(ino);
}

// --- new nodes -----------------------------------------------------------------------------

int Volume::put_inode(uint32_t ino, File& f, DataNode head, std::span<const uint8_t> data, Use why)
{
    uint32_t at = 0;
    const bool hole = head.compressor == kZero;
    if (!hole) head.dsize = uint32_t(data.size());
    const auto build = [&] { return inode_node(ino, ++f.version, head, data); };
    if (const int error = log_->append(kInodeSize + uint32_t(data.size()), why, build, at)) return error;
    use(at, ino);
    const uint32_t old = std::exchange(f.newest, at);
    if (is_plain(head.mode) && head.dsize > 0) cover(ino, f, head.offset, head.offset + head.dsize, at);
    if (old != kNowhere) unuse(old);
    return 0;
}

// A name that is given, taken over, or with ino 0 removed.
int Volume::put_name(uint32_t folder, const std::string& name, uint32_t ino, uint32_t mode)
{
    File& parent = files_[folder];
    const uint32_t now = now_();
    const auto build = [&] {
        return name_node(folder, name, {.version = ++parent.version, .ino = ino, .mtime = now}, mode);
    };
    uint32_t at = 0;
    const Use why = ino ? Use::write : Use::remove;
    if (const int error = log_->append(kDirentSize + uint32_t(name.size()), why, build, at)) return error;
    const Place place(folder, name);
    owners_[at].name = place;
    parent.mtime = now;
    if (const auto removal = removals_.extract(place); !removal.empty()) {
        owners_.erase(removal.mapped());
        log_->drop(removal.mapped());
    }
    remove_entry(parent, name);
    if (ino == 0) {
        removals_[place] = at;
        return 0;
    }
    written_[at] = place;
    ++name_count_[place];
    parent.names[name] = {ino, at, ++last_order_};
    parent.order[last_order_] = name;
    ++files_[ino].links;
    return 0;
}

void Volume::remove_entry(File& folder, const std::string& name)
{
    const auto old = folder.names.find(name);
    if (old == folder.names.end()) return;
    const Entry entry = old->second;
    owners_.erase(entry.at);
    log_->drop(entry.at);
    folder.order.erase(entry.order);
    folder.names.erase(old);
    unname(entry.ino);
}

// --- for garbage collection ----------------------------------------------------------------

// A removal is needed as long as the flash has the name that it removes.
bool Volume::needs(uint32_t at)
{
    const auto owner = owners_.find(at);
    if (owner == owners_.end()) return false;
    if (owner->second.ino) return true;
    const Place& place = owner->second.name;
    const auto removal = removals_.find(place);
    if (removal == removals_.end() || removal->second != at) return true;
    if (name_count_.contains(place)) return true;
    removals_.erase(removal);
    owners_.erase(owner);
    return false;
}

// A page of a file that several nodes share becomes one node.
bool Volume::merge(uint32_t at, uint32_t room)
{
    const auto owner = owners_.find(at);
    if (owner == owners_.end() || !owner->second.ino) return false;
    const uint32_t ino = owner->second.ino;
    File& f = files_[ino];
    if (!is_plain(f.mode)) return false;
    const auto piece =
        std::find_if(f.pieces.begin(), f.pieces.end(), [&](auto& p) { return p.second.at == at; });
    if (piece == f.pieces.end()) return false;
    const uint32_t begin = piece->first - piece->first % kPageSize;
    const uint32_t end = std::min(begin + kPageSize, uint32_t(f.content.size()));
    const auto parts = std::distance(f.pieces.lower_bound(begin), f.pieces.lower_bound(end));
    if (parts < 2 || aligned(kInodeSize + end - begin) > room) return false;
    DataNode head = head_of(f);
    head.offset = begin;
    return put_inode(ino, f, head, std::span(f.content).subspan(begin, end - begin), Use::collect) == 0 &&
           !owners_.contains(at);
}

void Volume::moved(uint32_t from, uint32_t to)
{
    auto node = owners_.extract(from);
    if (node.empty()) return;
    const Owner owner = node.mapped();
    node.key() = to;
    owners_.insert(std::move(node));
    if (owner.ino) {
        File& f = files_[owner.ino];
        if (f.newest == from) f.newest = to;
        for (auto& [begin, piece] : f.pieces)
            if (piece.at == from) piece.at = to;
        return;
    }
    const Place& place = owner.name;
    if (const auto removal = removals_.find(place); removal != removals_.end() && removal->second == from) {
        removal->second = to;
        return;
    }
    files_[place.first].names[place.second].at = to;
    written_[to] = place;
    ++name_count_[place];
}

void Volume::erased(uint32_t begin, uint32_t end)
{
    const auto first = written_.lower_bound(begin), last = written_.lower_bound(end);
    for (auto name = first; name != last; ++name)
        if (--name_count_[name->second] == 0) name_count_.erase(name->second);
    written_.erase(first, last);
}

} // namespace vcam::jffs2
