// vcam new: makes a camera. The same options give the same bytes.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/factory_state.hpp"
#include "sim/vcam/new_devices.hpp"
#include "sim/vcam/new_values.hpp"
#include "sim/guest/guest.hpp"
#include "sim/vcam/options.hpp"
#include "sim/sandbox/pieces.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <sys/stat.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

struct Geometry {
    const char* flash;
    std::array<const char*, 4> partitions;
};
// 16 MiB of NOR in 64 KiB blocks; 64 MiB of NAND in 16 KiB blocks of 512-byte pages, the size of the
// chunks in which the firmware writes.
constexpr Geometry kGeometries[] = {
    {"nor", {"nor,512K,64K,1", "nor,3M,64K,1", "nor,11776K,64K,1", "nor,1M,64K,1"}},
    {"nand", {"nand,1M,16K,512", "nand,8M,16K,512", "nand,48M,16K,512", "nand,7M,16K,512"}},
};
// What a partition must hold so that the camera starts.
constexpr struct {
    const char* partition;
    uint64_t bytes;
    const char* content;
} kLeast[] = {{"mtd0", kBootBytes, "the boot loader and its variables"},
              {"mtd3", 128 << 10, "the settings"}}; // each file takes a page of memory while it is mounted
constexpr size_t kKernelBytes = 0x180000, kRootBytes = 0x600000; // what the factory's images fill
constexpr time_t kFirmwareTime = 1348028640;                     // 2012-09-19 04:24:00 UTC

struct NewOptions {
    FactoryOptions factory;
    std::string flash = "nor", erase_block, page;           // empty: as the kind of flash has it
    std::vector<std::pair<std::string, std::string>> sizes; // mtdN, size
    std::vector<std::string> bad;                           // mtdN:BLOCK
    std::vector<std::string> daemons;
    NewDevices devices;
    std::vector<std::string> drivers; // DEVICE=MODULE
    std::vector<unsigned> i2c;        // addresses
    bool all_daemons = false, realtime = false, force = false;
};

std::vector<cli::Option> flash_options(NewOptions& o)
{
    return {
        {"--flash", "nor|nand", "kind and geometry of the flash (nor)",
         [&](auto& v) {
             o.flash = cli::one_of(v, {"nor", "nand"});
         }},
        {"--erase-block", "SIZE", "of each partition, 8K to 1M (NOR 64K, NAND 16K)",
         [&](auto& v) { o.erase_block = check_erase_block(v); }},
        {"--page-size", "SIZE", "of NAND flash, 512 to 8K (512)", [&](auto& v) { o.page = check_page(v); }},
        {"--size", "mtdN=SIZE", "another size of a partition",
         [&](auto& v) {
             auto equal = v.find('=');
             if (equal == std::string::npos) wrong_use(text("--size %s: write it as mtd2=32M", v.c_str()));
             o.sizes.emplace_back(v.substr(0, equal), v.substr(equal + 1));
         }},
        {"--bad", "mtdN:BLOCK", "a bad block (nand)", [&](auto& v) { o.bad.push_back(v); }}};
}

std::vector<cli::Option> firmware_options(FactoryOptions& o)
{
    return {
        {"--model", "CODE", text("model code in cam_model.conf, %s to %s (ZM131)", kFirstModel, kLastModel),
         [&](auto& v) { o.model = check_model(v); }},
        {"--mac", "ADDRESS", "boot variable ethaddr", [&](auto& v) { o.mac = check_mac(v); }},
        {"--serial", "TEXT", "boot variable serial_no", [&](auto& v) { o.serial = check_variable(v); }},
        {"--product", "TEXT", "boot variable product_code", [&](auto& v) { o.product = check_variable(v); }},
        {"--address", "IP", "address in network.conf", [&](auto& v) { o.address = check_address(v); }},
        {"--marker", "TEXT", "four characters that packages must carry (3510)",
         [&](auto& v) { o.marker = check_marker(v); }},
        {"--version", "1|3", "package layout that the firmware expects (1)",
         [&](auto& v) {
             o.version = cli::one_of(v, {"1", "3"})[0] - '0';
         }},
        {"--web", "webs|lighttpd", "the firmware's web server (webs)",
         [&](auto& v) {
             o.lighttpd = cli::one_of(v, {"webs", "lighttpd"}) == "lighttpd";
         }},
    };
}

std::vector<cli::Option> board_options(NewOptions& o)
{
    return {
        {"--daemon", "PATH[:OPTIONS]", "a daemon that every run starts; OPTIONS ignore-term, hold=FILE",
         [&](auto& v) { parse_daemon(v), o.daemons.push_back(v); }},
        {"--daemons", nullptr, "every run starts all of the firmware's daemons",
         [&](auto&) { o.all_daemons = true; }},
        {"--device", "FILE", "a shared object that is the model of a device of your own",
         [&](auto& v) { o.devices.add(v); }},
        {"--driver", "DEVICE=MODULE",
         "a device that opens only while the module, in /dvs/extdrv, is loaded; as ds1339=ds_1339",
         [&](auto& v) { o.drivers.push_back(check_driver(v)); }},
        {"--i2c", "ADDRESS", "a device on the I2C bus",
         [&](auto& v) { o.i2c.push_back(unsigned(cli::whole_number(v, 0, 0xFF))); }},
        {"--realtime", nullptr, "camera time runs like the clock on the wall",
         [&](auto&) { o.realtime = true; }},
        {"--force", nullptr, "replace a camera that is there", [&](auto&) { o.force = true; }},
    };
}

std::vector<cli::Option> option_table(NewOptions& o)
{
    std::vector<cli::Option> all = firmware_options(o.factory);
    for (const auto& more : {flash_options(o), board_options(o)})
        all.insert(all.end(), more.begin(), more.end());
    return all;
}

const Partition& named(const std::vector<Partition>& parts, const std::string& name, const char* option)
{
    for (const auto& p : parts)
        if (p.name == name) return p;
    wrong_use(text("%s %s: there are mtd0 to mtd%zu", option, name.c_str(), parts.size() - 1));
}

// The size that the options ask for, if they do.
std::optional<std::string> size_of(const NewOptions& o, const std::string& name)
{
    std::optional<std::string> size;
    for (const auto& [which, wanted] : o.sizes)
        if (which == name) size = wanted;
    return size;
}

// The largest erase block that divides the size.
uint64_t most_erase_block(uint64_t size) { return std::min<uint64_t>(size & (~size + 1), kMostEraseBlock); }

Partition partition(const NewOptions& o, const std::string& name, const char* usual)
{
    const auto wanted = size_of(o, name);
    auto words = split(usual, ',');
    if (!o.erase_block.empty()) words[2] = o.erase_block;
    if (!o.page.empty()) words[3] = o.page;
    words[1] = wanted.value_or(words[1]);
    const uint64_t size = parse_size(words[1], ("--size " + name).c_str());
    const uint64_t erase = parse_size(words[2], "--erase-block");
    if (wanted && (size == 0 || size % erase))
        wrong_use(text("--size %s=%s: give whole erase blocks, a multiple of %s", name.c_str(),
                       words[1].c_str(), human_size(erase).c_str()));
    for (const auto& least : kLeast)
        if (name == least.partition && size < least.bytes)
            wrong_use(text("--size %s=%s: give %s or more, for %s", name.c_str(), words[1].c_str(),
                           human_size(least.bytes).c_str(), least.content));
    if (size % erase)
        wrong_use(text(
            "--erase-block %s: %s has %s, so give %s to %s, or another --size %s=", o.erase_block.c_str(),
            name.c_str(), human_size(size).c_str(), human_size(kLeastEraseBlock).c_str(),
            human_size(most_erase_block(size)).c_str(), name.c_str()));
    return parse_partition(name, join(words, ","));
}

std::vector<Partition> partitions(const NewOptions& o)
{
    if (!o.page.empty() && o.flash != "nand")
        wrong_use("--page-size: only NAND flash has pages; add --flash nand");
    std::vector<Partition> out;
    for (const auto& g : kGeometries) {
        if (o.flash != g.flash) continue;
        for (size_t i = 0; i < g.partitions.size(); ++i) {
            try {
                out.push_back(partition(o, text("mtd%zu", i), g.partitions[i]));
            } catch (const Error& e) {
                wrong_use(e.what());
            }
        }
    }
    for (const auto& [which, size] : o.sizes) named(out, which, "--size");
    return out;
}

void prepare_folder(const std::string& folder, bool force)
{
    if (!exists(folder)) return make_folders(folder);
    if (!fs::is_directory(folder)) fail("%s is no folder", folder.c_str());
    if (fs::is_empty(folder)) return;
    if (!exists(folder + "/camera.conf"))
        fail("%s is not empty and holds no camera; choose another folder", folder.c_str());
    if (!force) fail("%s holds a camera already; replace it with --force", folder.c_str());
    Fd held = Camera(folder).lock();
    for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
}

std::string configuration(const NewOptions& o, const std::vector<Partition>& parts)
{
    std::string out =
        text("model=%s\nflash=%s\nrealtime=%d\n", o.factory.model.c_str(), o.flash.c_str(), o.realtime);
    for (const auto& p : parts) out += text("%s=%s\n", p.name.c_str(), format_geometry(p).c_str());
    for (const auto& d : o.daemons) out += text("daemon=%s\n", d.c_str());
    for (const auto& name : o.devices.names()) out += text("device=%s\n", name.c_str());
    for (const auto& d : o.drivers) out += text("driver.%s\n", d.c_str());
    if (o.all_daemons)
        for (const auto& name : factory_daemons(o.factory)) out += text("daemon=/bin/%s\n", name.c_str());
    return out;
}

struct BadBlock {
    std::string partition;
    uint64_t block;
};

std::vector<BadBlock> bad_blocks(const NewOptions& o, const std::vector<Partition>& parts)
{
    std::vector<BadBlock> out;
    for (const auto& bad : o.bad) {
        auto words = split(bad, ':');
        if (words.size() != 2) wrong_use(text("--bad %s: write it as mtd2:17", bad.c_str()));
        const auto& p = named(parts, words[0], "--bad");
        if (words[1].empty() || words[1].find_first_not_of("0123456789") != std::string::npos)
            wrong_use(text("--bad %s: write it as mtd2:17", bad.c_str()));
        out.push_back({p.name, strtoull(words[1].c_str(), nullptr, 10)});
        if (p.type != "nand") wrong_use(text("--bad %s: only NAND flash has bad blocks", bad.c_str()));
        if (out.back().block >= p.size / p.erase_size)
            wrong_use(text("--bad %s: %s has %llu blocks", bad.c_str(), p.name.c_str(),
                           (unsigned long long)(p.size / p.erase_size)));
    }
    return out;
}

// The factory's programmer leaves bad blocks as they are.
void write_image(const Camera& camera, const Partition& p, std::string bytes,
                 const std::vector<BadBlock>& bad)
{
    for (const auto& b : bad) {
        if (b.partition != p.name) continue;
        bytes.replace(b.block * p.erase_size, p.erase_size, p.erase_size, '\xff');
        append_file(camera.image(p) + ".bad", text("%llu\n", (unsigned long long)b.block));
    }
    write_file(camera.image(p), bytes);
}

void write_flash(const Camera& camera, const NewOptions& o, const std::vector<BadBlock>& bad)
{
    make_folders(camera.path("flash"));
    auto& parts = camera.partitions();
    write_image(camera, parts[0], factory_boot(o.factory, parts[0].size), bad);
    write_image(camera, parts[1], factory_image(kKernelBytes, parts[1].size, 2), bad);
    write_image(camera, parts[2], factory_image(kRootBytes, parts[2].size, 3), bad);
    write_image(camera, parts[3], std::string(parts[3].size, '\xff'), bad);
    ScratchFolder etc;
    for (const auto& f : factory_settings(o.factory)) {
        std::string path = etc.path() + f.path.substr(strlen("/etc"));
        make_folders(fs::path(path).parent_path().string());
        write_file(path, f.content, f.mode);
    }
    // Whenever it is made, the same camera has the same flash: its files are as old as the firmware.
    const timespec made[2] = {{kFirmwareTime, 0}, {kFirmwareTime, 0}};
    for (const auto& entry : fs::recursive_directory_iterator(etc.path()))
        utimensat(AT_FDCWD, entry.path().c_str(), made, AT_SYMLINK_NOFOLLOW);
    sync_image(camera.image(parts[3]), parts[3], etc.path());
}

void link_program(const Camera& camera, const std::string& name, const std::string& target)
{
    std::string path = camera.root(name);
    std::error_code ignored;
    fs::remove(path, ignored);
    fs::create_symlink(target, path);
}

// "bin/cat" and so on, as the program itself lists them.
std::vector<std::string> output_of(const std::string& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "re"), pclose);
    std::string out;
    std::array<char, 4096> chunk;
    while (size_t n = pipe ? fread(chunk.data(), 1, chunk.size(), pipe.get()) : 0)
        out.append(chunk.data(), n);
    return split(trim(out), '\n');
}

// The applets are what the executable's own list says: its last line.
std::vector<std::string> applets(const std::string& zep)
{
    auto lines = output_of("exec '" + zep + "' 2>/dev/null");
    std::vector<std::string> out;
    for (const auto& name : split(lines.back(), ',')) out.push_back(trim(name));
    if (out.size() < 2) fail("%s lists no applets", zep.c_str());
    return out;
}

void write_root(const Camera& camera, const NewOptions& o, const Pieces& pieces)
{
    for (const char* folder :
         {"/bin", "/sbin", "/dvs/extdrv", "/usr", "/tmp", "/var", "/mnt/sd", "/mnt/usb", "/root"})
        make_folders(camera.root(folder));
    fs::permissions(camera.root("/tmp"), fs::perms::all | fs::perms::sticky_bit);
    for (const auto& path : output_of("exec '" + pieces.busybox + "' --list-full")) {
        const bool system = path.find("sbin/") != std::string::npos;
        const std::string name = fs::path(path).filename().string();
        if (name != "busybox") link_program(camera, (system ? "/sbin/" : "/bin/") + name, "/bin/busybox");
    }
    // The shell is the host's: busybox's own prefers its built-in umount, date and ifconfig to the
    // camera's, and a statically linked shell would not live in simulated time.
    link_program(camera, "/bin/sh", fs::canonical("/bin/sh").string());
    for (const auto& tool : kGuestLinks) {
        for (const char* folder : {"/bin/", "/sbin/"})
            fs::remove(camera.root(std::string(folder) + tool.name));
        link_program(camera, text("%s/%s", tool.folder, tool.name), "/sbin/vcam-guest");
    }
    for (const auto& name : factory_daemons(o.factory))
        link_program(camera, "/bin/" + name, "/sbin/vcam-guest");
    for (const auto& name : applets(pieces.zep)) link_program(camera, "/bin/" + name, "/bin/zep");
    for (const auto& f : factory_files(o.factory)) write_file(camera.root(f.path), f.content, f.mode);
    for (const auto& driver : o.drivers) {
        const std::string module = split(driver, '=')[1];
        write_file(camera.root(text("/dvs/extdrv/%s.ko", module.c_str())), module + "\n");
    }
}

// The reset key pulls its line down. What else hangs on the board is up to its user.
void write_board(const Camera& camera, const NewOptions& o)
{
    write_file(camera.path("pins"), "8.1 level 1\n");
    if (!o.i2c.empty()) make_folders(camera.path("i2c"));
    for (unsigned device : o.i2c) write_file(camera.path(text("i2c/%02X", device)), std::string(256, '\0'));
}

} // namespace

int new_main(const Arguments& arguments)
{
    NewOptions o;
    const auto words = cli::parse(arguments, {option_table(o), {kCamera}});
    const auto& folder = words.plain[0];
    for (const auto& driver : o.drivers) check_driver_device(driver, o.devices.names());
    auto parts = partitions(o);
    auto bad = bad_blocks(o, parts);
    const Pieces pieces = find_pieces();
    prepare_folder(folder, o.force);
    write_file(folder + "/camera.conf", configuration(o, parts));
    Camera camera(folder);
    write_flash(camera, o, bad);
    write_root(camera, o, pieces);
    write_board(camera, o);
    o.devices.lay(camera);
    for (const char* name : {"journal", "syslog", "faults", "mounts", "modules"})
        write_file(camera.path(name), "");
    return 0;
}

} // namespace vcam
