// What a new camera leaves the factory with: settings, boot environment, programs.
#include "sim/vcam/factory_state.hpp"
#include "sim/base/files.hpp"
#include "sim/base/text.hpp"

#include <cstring>

namespace vcam {
namespace {

constexpr size_t kEnvironmentOffset = 0x40000; // where the boot loader keeps its variables
constexpr size_t kEnvironmentSize = 0x10000;

struct Template {
    const char* path;
    const char* content; // @NAME@ is replaced
    unsigned mode = 0644;
};

constexpr Template kSettings[] = {
    {"/etc/cam_model.conf", "# set in production\ncam_model=@MODEL@\n"},
    {"/etc/oem_marker.conf", "MARKER=@MARKER@\n"},
    {"/etc/network/network.conf", "# network interface\n"
                                  "dhcp_enable=0\n"
                                  "ip_address=@ADDRESS@\n"
                                  "subnet_mask=255.255.255.0\n"
                                  "gateway=192.168.10.1\n"
                                  "dns_1=192.168.10.1\n"
                                  "dns_2=0.0.0.0\n"
                                  "hostname=camera\n"},
    {"/etc/network/wireless.conf", "enable=0\nssid=\"\"\nsecurity=wpa2\npassphrase=\"\"\n", 0600},
    {"/etc/system.conf",
     "# device\ndevice_name=\"Gate 3, north\"\nlocation=\"car park\"\nlanguage=en\nuptime_reboot=0\n"},
    {"/etc/serverinfo.conf", "manufacturer=\"Video systems\"\nmodel_name=@MODEL@\nserial_no=@SERIAL@\n"},
    {"/etc/tcp_server.conf", "server_port=1852\nmax_client=16\n"},
    {"/etc/stream.conf", "stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\nstream_1_codec=h264\n"},
    {"/etc/videodecoder.conf", "# 0 NTSC, 1 PAL\nvideo_type=1\n"},
    {"/etc/timezone.conf", "timezone=0\ndst_enable=0\nntp_enable=0\nntp_server=pool.ntp.org\n"},
    {"/etc/killList", "/bin/RTSPServer\n/bin/AVServer\n"},
    {"/etc/termList", "/bin/webs\n/bin/lighttpd\n/bin/confd\n"},
    {"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/false\n"},
    {"/etc/group", "root:x:0:\nnogroup:x:65534:\n"},
    {"/etc/hosts", "127.0.0.1\tlocalhost camera\n"},
    {"/etc/services", "http\t80/tcp\nntp\t123/udp\n"},
    {"/etc/fstab", "/dev/mtdblock3\t/etc\tjffs2\tdefaults\t0 0\n"},
    {"/etc/profile", "PATH=/bin:/sbin:/usr/bin\nexport PATH\n"},
};
constexpr Template kWebs = {"/etc/web.conf", "port=80\ntimeout=300\n"};
constexpr Template kLighttpd = {"/etc/lighttpd/lighttpd.conf",
                                "server.port = 80\nserver.document-root = \"/var/www\"\n"};

constexpr const char* kModules[] = {"tw_2864", "tw_9910", "ise_2010", "hiusb",
                                    "tlv_320", "ov_2643", "ds_1339",  "gv_7601"};
constexpr const char* kDaemons[] = {"confd",         "AVServer",        "AVClient",     "ucftpd",
                                    "encpd",         "onvif_discovery", "onvif_server", "genetec_discovery",
                                    "RTSPServer",    "RTSPClient",      "RecordDaemon", "QRNSysMgr",
                                    "QRNNetManager", "dhcpd",           "islmanager",   "snmpd"};

std::string filled_in(std::string content, const FactoryOptions& o)
{
    const std::pair<const char*, const std::string&> names[] = {
        {"@MODEL@", o.model}, {"@MARKER@", o.marker}, {"@ADDRESS@", o.address}, {"@SERIAL@", o.serial}};
    for (const auto& [name, value] : names)
        for (size_t at; (at = content.find(name)) != std::string::npos;)
            content.replace(at, strlen(name), value);
    return content;
}

FactoryFile made(const Template& t, const FactoryOptions& o)
{
    return {t.path, filled_in(t.content, o), t.mode};
}

// CRC, then the variables, each with a NUL, and one NUL more: the boot loader's own form.
std::string environment(const FactoryOptions& o)
{
    const std::string variables[] = {"bootdelay=1",
                                     "baudrate=115200",
                                     "bootcmd=bootm 0x80080000",
                                     "bootargs=mem=96M console=ttyAMA0,115200 root=/dev/mtdblock2",
                                     "ethaddr=" + o.mac,
                                     "serial_no=" + o.serial,
                                     "product_code=" + o.product,
                                     "stdin=serial"};
    std::string data;
    for (const auto& v : variables) data += v + '\0';
    data.resize(kEnvironmentSize - 4, '\0');
    uint32_t crc = crc32(data.data(), data.size());
    std::string head;
    for (int shift = 0; shift < 32; shift += 8) head += char(crc >> shift);
    return head + data;
}

} // namespace

std::vector<FactoryFile> factory_settings(const FactoryOptions& options)
{
    std::vector<FactoryFile> out;
    for (const auto& t : kSettings) out.push_back(made(t, options));
    out.push_back(made(options.lighttpd ? kLighttpd : kWebs, options));
    return out;
}

std::vector<FactoryFile> factory_files(const FactoryOptions& options)
{
    std::vector<FactoryFile> out = {
        {"/usr/upgrade", text("MARKER=%s\nVERSION=%d\nMODEL=%s\n", options.marker.c_str(), options.version,
                              options.model.c_str())},
        {"/dvs/Hi3512reg.ko", "Hi3512reg\n"},
    };
    for (const char* name : kModules) out.push_back({text("/dvs/extdrv/%s.ko", name), text("%s\n", name)});
    return out;
}

std::vector<std::string> factory_daemons(const FactoryOptions& options)
{
    std::vector<std::string> out(std::begin(kDaemons), std::end(kDaemons));
    out.emplace_back(options.lighttpd ? "lighttpd" : "webs");
    return out;
}

std::string factory_boot(const FactoryOptions& options, size_t size)
{
    std::string out = factory_image(0x30000, size, 1);
    static_assert(kEnvironmentOffset + kEnvironmentSize == kBootBytes);
    return out.replace(kEnvironmentOffset, kEnvironmentSize, environment(options));
}

std::string factory_image(size_t filled, size_t size, unsigned seed)
{
    std::string out(size, '\xff');
    uint64_t x = 0x9E3779B97F4A7C15u * (seed + 1);
    for (size_t i = 0; i + 8 <= filled && i + 8 <= size; i += 8) {
        x ^= x << 13; // xorshift64: the same bytes on every machine
        x ^= x >> 7;
        x ^= x << 17;
        for (int b = 0; b < 8; ++b) out[i + size_t(b)] = char(x >> (8 * b));
    }
    return out;
}

} // namespace vcam
