// New firmware for the virtual camera, its images made by the programs that make them for real ones.
#pragma once

#include "tests/support/camera.hpp"
#include "tests/support/package_file.hpp"

struct Firmware {
    Bytes kernel, root, settings;

    [[nodiscard]] Bytes pack() const { return package(1, kernel, root, settings); }
};

// What the new settings partition holds before anything is restored.
inline const std::vector<std::pair<const char*, const char*>> kNewSettings = {
    {"network/network.conf", "ip_address=192.168.1.100\n"},
    {"network/wireless.conf", "ssid=\"\"\n"},
    {"system.conf", "device_name=new\n"},
    {"serverinfo.conf", "serial_no=0\n"},
    {"cam_model.conf", "cam_model=NEW\n"},
    {"tcp_server.conf", "server_port=1\nmax_client=99\n"},
    {"stream.conf", "stream_1_port=1\nstream_2_port=2\nstream_3_port=3\nnew_in_this_release=1\n"},
    {"videodecoder.conf", "video_type=9\n"},
    {"web.conf", "port=8\ntimeout=1\n"},
    {"lighttpd/lighttpd.conf", "server.port=8\n"},
    {"oem_marker.conf", "MARKER=3510\n"},
};

inline Firmware make_firmware(const fs::path& folder)
{
    Bytes vmlinux, root;
    for (int i = 0; i < 200000; ++i) vmlinux += char(i * 7 >> 3);
    for (int i = 0; i < 300001; ++i) root += char(i * 13 >> 5);
    write_file(folder / "vmlinux", vmlinux);
    for (auto& [name, content] : kNewSettings) write_file(folder / "etc" / name, content);
    std::string make = "cd " + folder.string() +
                       " && mkimage -A arm -O linux -T kernel -C none -n camera -d vmlinux uImage >/dev/null"
                       " && PATH=$PATH:/usr/sbin mkfs.jffs2 -q -e 0x10000 -p -d etc -o jffs2";
    EXPECT_EQ(system(make.c_str()), 0);
    return {read_file(folder / "uImage"), root, read_file(folder / "jffs2")};
}
