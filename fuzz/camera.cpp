// The camera's own parsers of outside bytes.
#include "fuzz/fuzz.hpp"

#include "board/arp_frame.hpp"
#include "board/bootenv.h"
#include "common/base/bytes.hpp"
#include "common/cconfd.h"
#include "common/cicomm.h"
#include "common/ctime.h"
#include "common/cutil_conf.h"
#include "common/net/qrn_status_files.hpp"
#include "common/users/passwd_file.hpp"
#include "common/users/user_file.hpp"
#include "factory/applets.h"
#include "factory/audio_wire.hpp"
#include "factory/wiring.hpp"
#include "service/kill_list.hpp"
#include "service/proc_scan.hpp"
#include "tests/unit/common/reader_list.hpp"
#include "upgrade/cflash.h"
#include "upgrade/crc32.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <algorithm>
#include <arpa/inet.h>

namespace {

constexpr char kPackage[] = "/tmp/package";

// A fuzzer does not guess CRC values: right ones lead it to the checks behind them.
std::string with_crcs(std::string_view bytes, size_t image)
{
    std::string mended(bytes);
    if (bytes.size() < image + zep::kImageHeaderBytes) return mended;
    uint8_t* header = reinterpret_cast<uint8_t*>(&mended[image]);
    const std::span<const uint8_t, 64> fields(header, 64);
    const size_t held =
        std::min<size_t>(zep::decode_image_header(fields).data_size, bytes.size() - image - 64);
    zep::store_be32(header, zep::kImageMagic);
    zep::store_be32(header + 24, zep::crc32_update(0, header + 64, held));
    zep::store_be32(header + 4, zep::image_header_crc(fields));
    return mended;
}

void check_package(std::string_view bytes, int32_t version)
{
    Outside outside;
    outside.file(kPackage, bytes);
    if (version == 3)
        outside.file("/usr/upgrade",
                     "MARKER=3510\nVERSION=3\n"); // else what a device without the file expects
    zep::Package package;
    const char* unreadable = nullptr;
    const bool read = zep::read_package(kPackage, true, package, unreadable);
    must(read || unreadable || package.header.marker != zep::marker_word("3510") ||
         package.header.version != version);
    const bool good = read && !zep::check_sizes(package.header, package.file_size) &&
                      !zep::check_contents(package.fd.get(), package.header);
    must(good == (CFlash_CheckPackage(kPackage) == 0));
    must(!good || package.header.offset(3) == int64_t(bytes.size()));
}

void try_package(std::string_view bytes)
{
    zep::log_redirect([](const char* line) { must(strlen(line) < 200); });
    const int32_t version = bytes.size() > 4 && bytes[4] == 3 ? 3 : 1;
    check_package(bytes, version);
    check_package(with_crcs(bytes, zep::header_length(version)), version);
}

// Twelve bytes an erase block: the walk looks at no others.
void try_jffs2_walk(std::string_view bytes)
{
    Outside outside;
    outside.file(kPackage, bytes, 0);
    bool good = true;
    for (size_t at = 0; at + 12 <= bytes.size(); at += 12) good &= bytes.substr(at, 2) == "\x85\x19";
    must(good == (CFlash_CheckJffs2(kPackage, 0) == 0));
}

constexpr char kFile[] = "/etc/fuzzed.conf";

void try_token(std::string_view bytes)
{
    const std::string text(bytes);
    const size_t room = strlen(text.c_str()) + 1;
    const std::unique_ptr<char[]> token(new char[room]); // exactly as large as documented
    const char* end = text.c_str() + room - 1;
    for (const char* cursor = text.c_str(); (cursor = CUTIL_GetConfToken(token.get(), cursor));) {
        must(cursor <= end);
        if (*cursor == '#' || *cursor == '[') return;
        must(strpbrk(token.get(), "=\n\r") == nullptr);
    }
}

void try_conf(std::string_view bytes)
{
    Outside outside;
    outside.file(kFile, bytes);
    const std::unique_ptr<char[]> value(new char[CUTIL_CONF_VALUE_SIZE]);
    for (const char* key : {"", "MARKER", "server_port",
                            "a key of more than sixty-three characters, which no file should hold, ever"})
        must(CUTIL_GetConfValue(kFile, key, value.get()) == 0 && strlen(value.get()) < CUTIL_CONF_VALUE_SIZE);
}

// The typed readers: a record stays sound.
void try_cconf(std::string_view bytes)
{
    Input input(bytes);
    AnyRecord record(kReaders[input.byte() % kReaders.size()]);
    Outside outside;
    outside.file(kFile, input.rest());
    must(record.read(kFile) == 1 && record.sound());
}

// The lines that do not begin so, each with its line end.
std::string lines_without(std::string_view start, std::string_view text)
{
    std::string others;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (!line.starts_with(start)) others.append(line) += '\n';
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return others;
}

// Rewriting: the setting is there once, every line that does not match stays.
void try_conf_write(std::string_view bytes)
{
    Input input(bytes);
    Outside outside;
    const int kind = input.byte() % 3;
    outside.file(kFile, input.rest());
    const int result = kind == 0   ? CUTIL_SetFileValue(kFile, "/etc/temp", "key", "v")
                       : kind == 1 ? CUTIL_SetConfValue(kFile, "key", "v")
                                   : CUTIL_SetConfValueSep(':', kFile, "key", "v");
    const std::string_view after = outside.read(kFile);
    must(result == 0 && outside.read(CUTIL_CONF_TEMP_PATH).empty());
    for (Input lines(input.rest()); !lines.rest().empty(); lines.take(1))
        if (lines.take(lines.rest().find('\n')).size() > 250) return; // two writers see it in pieces
    must(lines_without("key", after) == lines_without("key", input.rest()));
    must(after.find(kind == 2 ? "key:v\n" : "key=v\n") != after.npos);
}

constexpr const char* kBootKeys[] = {"ethaddr=", "serial_no=", "product_code=", "aab"};

void try_bootenv(std::string_view bytes)
{
    Input input(bytes);
    const uint8_t first = input.byte(), limit = input.byte();
    const size_t room = size_t(1) + limit / 2;
    const std::unique_ptr<char[]> out(new char[room]);
    Outside outside;
    outside.device("/dev/mtd0", input.rest(), true);
    const char* key = kBootKeys[first % std::size(kBootKeys)];
    if (BOOTENV_GetValue(key, limit, out.get(), room) != 0) return;
    const std::string value = out.get();
    must(value.size() < room && value.size() <= std::max<size_t>(limit, 1));
    must(value.empty() || input.rest().find('%') != bytes.npos ||
         input.rest().find(key + value) != bytes.npos);
}

void try_sntp(std::string_view bytes)
{
    Input input(bytes);
    const int zone = int(input.byte()) - 1, dst = input.byte() & 1;
    const auto reply = exactly(input.rest());
    Outside outside;
    if (reply.size() >= CTIME_NTP_PACKET_SIZE)
        must(setTime(reply.data(), dst, zone) == -1); // no clock chip here
}

constexpr zep::HardwareAddress kOwn = {2, 0x1A, 0x2B, 0, 0, 1};
constexpr zep::ProtocolAddress kProbed = {192, 168, 10, 20};

void try_arp(std::string_view bytes)
{
    const auto frame = exactly(bytes);
    const zep::ArpVerdict verdict = zep::judge_arp_frame(frame.data(), frame.size(), kOwn, kProbed);
    must(verdict == zep::ArpVerdict::ignore || frame.size() >= zep::kArpFrameSize);
    if (verdict != zep::ArpVerdict::conflict) return;
    must(std::search(frame.begin(), frame.end(), kProbed.begin(), kProbed.end()) != frame.end());
    zep::arp_sender(frame.data());
}

// Tables of the network: the first byte chooses the reader, the rest is the file.
void try_net_tables(std::string_view bytes)
{
    using Address = char[QRN_ADDRESS_SIZE];
    Input input(bytes);
    const int first = input.byte(), choice = first % 6;
    const char* interface = choice & 1 ? "eth0" : nullptr;
    Outside outside;
    outside.file(kFile, input.rest());
    const zep::Fd fd(outside.open(kFile));
    const std::unique_ptr<Address[]> list(new Address[5]);
    const auto valid = [&](int family, int32_t at) {
        in6_addr binary;
        must(memchr(list[at], '\0', QRN_ADDRESS_SIZE) != nullptr);
        const std::string address(list[at], strcspn(list[at], "%")); // without its zone
        return inet_pton(family, address.c_str(), &binary) == 1;
    };
    QRN_IF_COUNTERS_S counters;
    if (choice < 2 && zep::read_gateway(fd.get(), interface, list[0])) must(valid(AF_INET, 0));
    if ((choice == 2 || choice == 3) && zep::read_gateway6(fd.get(), interface, list[0]))
        must(valid(AF_INET6, 0));
    if (choice == 5) zep::read_counters(fd.get(), "eth0", counters);
    if (choice != 4) return;
    const int32_t max = 1 + first / 6 % 5, count = zep::read_resolvers(fd.get(), list.get(), max);
    must(count >= 0 && count <= std::min(max, QRN_RESOLVERS));
    for (int32_t i = 0; i < count; ++i) must(valid(AF_INET, i) || valid(AF_INET6, i));
}

// Datagrams into one endpoint, a byte in front of each says how long it is. A length that passes the check lies within
// what arrived.
void try_icom(std::string_view bytes)
{
    static CICOMM endpoint;
    endpoint.fd = -1;
    for (Input input(bytes); !input.rest().empty();) {
        const std::string_view datagram = input.take(input.byte());
        const auto length = int32_t(datagram.size());
        Outside outside;
        const auto receive = [&](auto function) {
            endpoint.fd = outside.connection(datagram);
            uint32_t command = 0;
            const int32_t got = function(&endpoint, &command);
            CICOMM_Close(&endpoint);
            return got;
        };
        const int32_t got = receive(CICOMM_RecvChecked);
        must(got == CICOMM_CheckMessage(exactly(datagram).data(), length));
        must(got == -1 || (got >= 0 && got + CICOMM_HEADER_SIZE <= length));
        const void* payload = CICOMM_GetRecvData(&endpoint);
        must(got <= 0 || memcmp(payload, datagram.data() + CICOMM_HEADER_SIZE, size_t(got)) == 0);
        receive(CICOMM_Recv);
    }
}

bool is_text(const char* text, size_t size)
{
    const size_t length = strnlen(text, size);
    return length < size &&
           std::none_of(text, text + length, [](char c) { return uint8_t(c) < ' ' || c == '\x7f'; });
}

// What a configuration daemon sends: values and notices are whole, terminated texts or nothing.
void try_confd(std::string_view bytes)
{
    Input input(bytes);
    const size_t room = size_t(input.byte()) * 10 + 1;
    Outside outside;
    const auto client = std::make_unique<CCONFD_CLIENT_S>();
    const std::unique_ptr<char[]> value(new char[room]), key(new char[CCONFD_KEY_SIZE]);
    CCONFD_Init(client.get(), "");
    client->watching = 1;
    client->fd = outside.connection(input.rest());
    for (int round = 0; round < 12 && client->fd >= 0; ++round) {
        if (round % 3 == 0 && CCONFD_NextNotice(client.get(), key.get(), 0) == 1)
            must(is_text(key.get(), CCONFD_KEY_SIZE));
        else if (CCONFD_Get(client.get(), "key", value.get(), int32_t(room)) == 0)
            must(is_text(value.get(), room));
        else if (round % 3 == 2)
            CCONFD_Set(client.get(), "key", "value");
    }
    while (client->pending > 0) must(CCONFD_NextNotice(client.get(), key.get(), 0) == 1);
    CCONFD_Close(client.get());
}

// The audio server's messages: the first byte says how the rest is cut into pieces.
void try_audio_wire(std::string_view bytes)
{
    static zep::WireReceiver receiver;
    receiver.reset();
    Input input(bytes);
    const size_t step = size_t(1) + input.byte();
    size_t taken = 0;
    while (!input.rest().empty()) {
        const auto stream = exactly(input.take(step));
        for (std::span<const uint8_t> piece(stream); !piece.empty();) {
            const size_t before = piece.size();
            const auto result = receiver.take(piece);
            if (result == zep::WireReceiver::Result::fault) return;
            taken += before - piece.size();
            must(before != piece.size()); // it would stand still
            if (result != zep::WireReceiver::Result::message) continue;
            must(receiver.body().size() <= AUDIO_WIRE_MAX_BODY && receiver.body().size() <= taken);
        }
    }
}

void try_camera_block(std::string_view bytes)
{
    Input input(bytes);
    char name[] = "get_cb_cam_info", option[] = "-v";
    char* argv[] = {name, option, nullptr};
    Outside outside;
    const int words = 1 + (input.byte() & 1);
    outside.device("/dev/ttyAMA2", input.rest(), false);
    must(get_cb_cam_info_main(words, argv) == 0);
}

void try_wiring(std::string_view bytes)
{
    Outside outside;
    outside.file("/etc/factory_io.conf", bytes);
    outside.file("/etc/cam_model.conf", "cam_model=ZM131\n");
    zep::Wiring wiring;
    zep::load_wiring(wiring);
    for (const zep::GpioLineList* list : {&wiring.outputs, &wiring.inputs, &wiring.leds, &wiring.key}) {
        must(list->count <= zep::kMaxLines);
        for (const zep::GpioLine& line : list->all()) must(memchr(line.name, '\0', sizeof line.name));
    }
}

// The account file: a change of one hash touches nothing else, and a file that cannot be copied stays.
void try_passwd(std::string_view bytes)
{
    constexpr zep::NewHash kChange = {"u", "abNANd1rDfiNc", ":65534:65534:u:/home:/bin/false"};
    if (bytes.find('\0') != bytes.npos) return; // text only: what is behind a NUL is not looked at
    Outside outside;
    outside.file(kFile, bytes);
    char before_name[zep::kAccountName], after_name[zep::kAccountName];
    const bool had = zep::find_superuser(kFile, before_name);
    const bool changed = zep::set_hash(kFile, "/etc/npasswd", kChange);
    const std::string_view after = outside.read(kFile);
    must(changed ? lines_without("u:", after) == lines_without("u:", bytes) : after == bytes);
    if (!changed) return;
    char line[zep::kAccountLine];
    const char* hash = zep::find_hash(kFile, kChange.user, line);
    must(hash && strcmp(hash, kChange.hash) == 0);
    must(!had || (zep::find_superuser(kFile, after_name) && strcmp(before_name, after_name) == 0));
}

USERTABLE_S load_users(Outside& outside, std::string_view content)
{
    outside.file(kFile, content);
    const zep::Fd fd(outside.open(kFile));
    USERTABLE_S table = {};
    must(zep::read_users(fd.get(), table) && table.count <= USERTABLE_USERS);
    return table;
}

// What loads is bounded, and a user that loads is there again after a save.
void try_user_file(std::string_view bytes)
{
    Outside outside;
    USERTABLE_S table = load_users(outside, bytes);
    std::string text;
    for (int i = 0; i < table.count; ++i) {
        USERTABLE_ENTRY_S& entry = table.entries[i];
        must(entry.name[0] != '\0' && zep::fits_user_line(entry.name, sizeof entry.name));
        must(memchr(entry.password, '\0', sizeof entry.password) != nullptr);
        entry.password[15] = '\0'; // as much as the file keeps
        char line[zep::kUserLine];
        text.append(line, zep::user_line(entry, line));
    }
    const USERTABLE_S again = load_users(outside, text);
    must(again.count == table.count);
    for (int i = 0; i < table.count; ++i) {
        const USERTABLE_ENTRY_S &a = table.entries[i], &b = again.entries[i];
        must(strcmp(a.name, b.name) == 0 && strcmp(a.password, b.password) == 0);
        must(memcmp(&a.right1, &b.right1, 4) == 0);
    }
}

// The names are the first short lines of the file; none is a piece of a long line or has a zero byte.
void try_kill_list(std::string_view bytes)
{
    std::vector<std::string> expected;
    for (Input input(bytes); !input.rest().empty() && expected.size() < CUTIL_KILL_LIST_NAMES;) {
        const size_t feed = input.rest().find('\n');
        const std::string_view line = input.take(feed == bytes.npos ? feed : feed + 1);
        if (line.size() < CUTIL_KILL_LIST_NAME_SIZE && line.find('\0') == line.npos)
            expected.emplace_back(line.substr(0, line.find_first_of("\r\n")));
    }
    Outside outside;
    outside.file(kFile, bytes);
    const zep::Fd fd(outside.open(kFile));
    const auto list = std::make_unique<zep::KillList>();
    zep::read_kill_list(fd.get(), *list);
    must(list->count == expected.size());
    for (size_t i = 0; i < expected.size(); ++i) must(expected[i] == list->names[i]);
}

// An entry of /proc: its name's length, its name, its command line.
void try_proc(std::string_view bytes)
{
    Input input(bytes);
    const std::string name(input.take(input.byte() % 16));
    Outside outside;
    if (name.find_first_of(std::string_view("/\0", 2)) != name.npos) return;
    outside.file("/proc/" + name + "/cmdline", input.rest());
    outside.file("/proc/77/cmdline", input.rest());
    for (const zep::ProcScanRule& rule : {zep::kPresenceRule, zep::kSignalRule}) {
        const auto process = [](void* context, int pid, const char* command) {
            const auto& r = *static_cast<const zep::ProcScanRule*>(context);
            must(pid >= r.lowest_pid && *command && strlen(command) <= r.length);
            return !zep::proc_matches(command, "/bin/webs");
        };
        must(zep::scan_processes(rule, {const_cast<zep::ProcScanRule*>(&rule), process}) == 0);
    }
}

} // namespace

const std::vector<Target> kTargets = {
    {"package", try_package},
    {"jffs2_walk", try_jffs2_walk, 256},
    {"token", try_token, 512, "conf"},
    {"conf", try_conf},
    {"cconf", try_cconf, 1024},
    {"conf_write", try_conf_write},
    {"bootenv", try_bootenv},
    {"sntp", try_sntp, 1600},
    {"arp", try_arp, 64},
    {"net_tables", try_net_tables},
    {"icom", try_icom},
    {"confd", try_confd, 1024},
    {"audio_wire", try_audio_wire},
    {"camera_block", try_camera_block, 64},
    {"wiring", try_wiring},
    {"passwd", try_passwd},
    {"user_file", try_user_file, 1024},
    {"kill_list", try_kill_list, 1024},
    {"proc", try_proc},
};
