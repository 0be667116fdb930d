// JFFS2 mounts served by the camera's first process.
#include "sim/guest/flash_mounts.hpp"
#include "sim/guest/fuse_server.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/jffs2/volume.hpp"
#include "sim/models/model.hpp"
#include "sim/models/table.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int64_t kBufferedFor = 5 * clock::kSecond; // as long as the kernel keeps what has changed
constexpr int kLookMs = 100;
constexpr char kType[] = "fuse.jffs2";
constexpr size_t kLongestWord = 256; // of a request or an answer over the socket

// The name has no place in a file system; the camera's network is its own.
struct Address {
    sockaddr_un un = {};
    socklen_t size = 0;
    Address()
    {
        constexpr std::string_view kName("\0vcam-jffs2", 11);
        un.sun_family = AF_UNIX;
        kName.copy(un.sun_path, kName.size());
        size = socklen_t(offsetof(sockaddr_un, sun_path) + kName.size());
    }
    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&un); }
};

std::string options_for(int device)
{
    return text("fd=%d,rootmode=40000,user_id=0,group_id=0,default_permissions,allow_other", device);
}

void send_answer(int socket, const std::string& words, int device)
{
    iovec part = {const_cast<char*>(words.c_str()), words.size() + 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (device >= 0) {
        message.msg_control = room.data();
        message.msg_controllen = room.size();
        cmsghdr* head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(sizeof device);
        memcpy(CMSG_DATA(head), &device, sizeof device);
    }
    sendmsg(socket, &message, MSG_NOSIGNAL); // who has gone meanwhile mounts nothing
}

// The words of an answer, and the descriptor that came with them.
std::string receive_answer(int socket, Fd& device)
{
    char words[kLongestWord] = "";
    iovec part = {words, sizeof words - 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = room.data();
    message.msg_controllen = room.size();
    if (recvmsg(socket, &message, MSG_CMSG_CLOEXEC) <= 0) return "the camera ends";
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    int fd = -1;
    if (head && head->cmsg_type == SCM_RIGHTS) memcpy(&fd, CMSG_DATA(head), sizeof fd);
    device = Fd(fd);
    return words;
}

// Where all ids are mapped to one, the files' owners cannot be shown.
bool has_owners()
{
    unsigned inside = 0, outside = 0, count = 0;
    const std::string map = raw::read_text("/proc/self/uid_map");
    return sscanf(map.c_str(), "%u %u %u", &inside, &outside, &count) == 3 && count > 1;
}

} // namespace

// A partition through its character device: each node counts as an operation of it, for the fault plan and the record.
class MtdMedium final : public jffs2::Medium {
public:
    // The newest mount of a partition has it; one that was unmounted while in use goes on in memory only.
    using Holder = std::atomic<const void*>;
    MtdMedium(unsigned number, Holder& holder)
        : model_(models::mtd(number)), fd_(model_.open(O_RDWR)), holder_(holder)
    {
    }
    ~MtdMedium() { model_.flush(); }
    int read(uint32_t at, std::span<uint8_t> out) override
    {
        return raw::pread(fd_.get(), out.data(), out.size(), at) == ssize_t(out.size()) ? 0 : EIO;
    }
    int write(uint32_t at, std::span<const uint8_t> bytes) override
    {
        if (holder_ != this) return 0;
        const ssize_t n = device::pwrite(model_, fd_.get(), bytes.data(), bytes.size(), at);
        return n == ssize_t(bytes.size()) ? 0 : EIO;
    }
    int erase(uint32_t at, uint32_t size) override
    {
        if (holder_ != this) return 0;
        erase_info_user block = {at, size};
        return device::ioctl(model_, fd_.get(), MEMERASE, &block) == 0 ? 0 : EIO;
    }
    void claim() { holder_ = this; }
    // Writes what is not in the journal yet.
    void write_journal() { model_.flush(); }

private:
    Model& model_;
    const raw::Fd fd_;
    Holder& holder_;
};

// One mounted file system and the thread that serves it.
class FlashMounts::Mount {
public:
    // An opening of /dev/fuse; `asker` is the tool that will mount it, if one has asked.
    Mount(FlashMounts& all, Fd asker) : all_(all), asker_(std::move(asker))
    {
        device_ =
            Fd(open(text("/proc/self/fd/%d", all.node_.get()).c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
        if (!device_) throw Error(strerror(errno));
        stop_ = Fd(eventfd(0, EFD_CLOEXEC));
        if (!stop_) throw Error(strerror(errno));
    }
    ~Mount() { stop(); }

    void load(const std::string& name)
    {
        const auto& camera = all_.camera_;
        const auto& p = camera.partition(name);
        jffs2::Bytes image;
        std::string problem = raw::read_file(camera.image(p), image);
        if (image.size() > p.size)
            problem = text("flash/%s has %zu bytes, the partition %llu", name.c_str(), image.size(),
                           (unsigned long long)p.size);
        if (problem.empty()) {
            const auto bad = jffs2::hide_bad_blocks(camera.image(p), uint32_t(p.erase_size), image);
            const auto number = unsigned(name.back() - '0');
            partition_ = std::make_unique<MtdMedium>(number, all_.holders_[number]);
            volume_ = std::make_unique<jffs2::Volume>(
                *partition_, [] { return uint32_t(clock::wall_ns() / clock::kSecond); });
            const uint32_t page = p.type == "nand" ? uint32_t(p.write_size) : 1;
            volume_->load({uint32_t(p.size), uint32_t(p.erase_size), page}, image, bad);
        }
        if (!problem.empty()) fail("cannot mount %s: %s", name.c_str(), problem.c_str());
    }
    [[nodiscard]] int device() const { return device_.get(); }
    [[nodiscard]] bool has_ended() const { return ended_; }
    void start()
    {
        thread_ = std::thread([this] {
            prctl(PR_SET_NAME, "jffs2");
            if (!asker_ || hand_over()) serve();
            device_ = Fd(); // whoever still waits for an answer is let go
            ended_ = true;
        });
    }
    // Ends the thread; unanswered requests fail.
    void stop()
    {
        if (!thread_.joinable()) return;
        eventfd_write(stop_.get(), 1);
        thread_.join();
    }
    void flush()
    {
        if (volume_) volume_->flush();
        if (partition_) partition_->write_journal();
    }

private:
    // False when the camera ends before the descriptor is readable, or the time is over.
    [[nodiscard]] bool wait_for(int fd, int limit_ms = -1) const
    {
        pollfd wait[2] = {{fd, POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        while (poll(wait, 2, limit_ms) < 0 && errno == EINTR) {
        }
        return !wait[1].revents;
    }
    // What waits for its page is written after a while, as the kernel does it.
    void write_buffered()
    {
        if (!volume_->has_buffered()) {
            buffered_since_ns_ = -1;
            return;
        }
        const int64_t now = clock::now_ns();
        if (buffered_since_ns_ < 0) buffered_since_ns_ = now;
        if (now - buffered_since_ns_ >= kBufferedFor) flush();
    }
    // The tool names the partition, gets the device, and says when it has mounted it.
    bool hand_over()
    {
        char name[kLongestWord] = "";
        if (!wait_for(asker_.get()) || recv(asker_.get(), name, sizeof name - 1, 0) <= 0) return false;
        try {
            load(name);
        } catch (const Error& e) {
            send_answer(asker_.get(), e.what(), -1);
            return false;
        }
        send_answer(asker_.get(), "", device_.get());
        if (!wait_for(asker_.get())) return false;
        recv(asker_.get(), name, sizeof name,
             0); // its end says the same: the device knows whether it is mounted
        asker_ = Fd();
        return true;
    }
    void serve()
    {
        bool mounted = false;
        FuseServer server(*volume_, device_.get(), has_owners());
        for (;;) {
            switch (server.serve(&clock::has_power)) {
            case FuseServer::Result::served: // the first is the kernel's own, before any program's
                if (!mounted) partition_->claim();
                mounted = true;
                partition_->write_journal();
                break;
            case FuseServer::Result::nothing:
                write_buffered();
                if (!wait_for(device_.get(), volume_->has_buffered() ? kLookMs : -1)) return;
                break;
            case FuseServer::Result::ended:
                return flush();
            }
        }
    }

    FlashMounts& all_;
    Fd asker_, device_, stop_;
    std::unique_ptr<MtdMedium> partition_;
    std::unique_ptr<jffs2::Volume> volume_;
    int64_t buffered_since_ns_ = -1;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

FlashMounts::FlashMounts(const Camera& camera, int fuse_node) : camera_(camera), node_(fuse_node) {}

FlashMounts::~FlashMounts() = default;

std::string FlashMounts::start(const std::string& partition, const std::string& folder)
{
    if (!node_) return "the host has no /dev/fuse for this user";
    std::unique_ptr<Mount> mount;
    try {
        mount = std::make_unique<Mount>(*this, Fd());
    } catch (const Error& e) {
        return text("/dev/fuse: %s", e.what());
    }
    mount->load(partition);
    const std::string source = "/dev/mtdblock" + partition.substr(3);
    if (::mount(source.c_str(), folder.c_str(), kType, MS_NOSUID | MS_NODEV,
                options_for(mount->device()).c_str()) < 0)
        return text("no mount of fuse: %s", strerror(errno));
    mount->start();
    mounts_.push_back(std::move(mount));
    const Address address;
    asked_ = Fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!asked_ || bind(asked_.get(), address.get(), address.size) < 0 || listen(asked_.get(), 8) < 0)
        fail("no socket for mounts: %s", strerror(errno));
    return {};
}

void FlashMounts::accept()
{
    Fd asker(accept4(asked_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!asker) return;
    std::erase_if(mounts_, [](const auto& mount) { return mount->has_ended(); });
    try {
        auto mount = std::make_unique<Mount>(*this, std::move(asker));
        mount->start();
        mounts_.push_back(std::move(mount));
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: no further mount: %s\n", e.what());
    }
}

void FlashMounts::cut()
{
    for (const auto& mount : mounts_) mount->stop();
    mounts_.clear(); // with what was still buffered
}

void FlashMounts::stop()
{
    for (const auto& mount : mounts_) {
        mount->stop();
        mount->flush();
    }
    mounts_.clear();
}

int mount_served(const std::string& partition,
                 const std::function<int(const char* type, const std::string& options)>& mount_it)
{
    const Address address;
    const Fd server(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!server || connect(server.get(), address.get(), address.size) < 0) return -1;
    if (send(server.get(), partition.c_str(), partition.size() + 1, MSG_NOSIGNAL) < 0) return EIO;
    Fd device;
    const std::string problem = receive_answer(server.get(), device);
    if (!problem.empty()) {
        fprintf(stderr, "mount: %s\n", problem.c_str());
        return EIO;
    }
    return mount_it(kType, options_for(device.get()));
}

} // namespace vcam
