// Every typed configuration reader, to be tried alike.
#pragma once

#include "common/cconf_device.h"
#include "common/cconf_event.h"
#include "common/cconf_network.h"
#include "common/cconf_server.h"
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

struct TypedReader {
    const zep::ConfReader& table;
    std::string path; // on the device
    int32_t (*read)(const char* path, void* record);
    void (*fallback)(void* record);
};

#define TYPED_READER(name, NAME)                                                                             \
    {                                                                                                        \
        zep::kConf##name, CCONF_##NAME##_PATH,                                                               \
            [](const char* path, void* record) {                                                             \
                return CCONF_Read##name(path, static_cast<CCONF_##NAME##_S*>(record));                       \
            },                                                                                               \
            [](void* record) { CCONF_Default##name(static_cast<CCONF_##NAME##_S*>(record)); }                \
    }

inline const std::vector<TypedReader> kReaders = {
    TYPED_READER(Network, NETWORK),
    TYPED_READER(Network6, NETWORK6),
    TYPED_READER(Wireless, WIRELESS),
    TYPED_READER(Pppoe, PPPOE),
    TYPED_READER(Ddns, DDNS),
    TYPED_READER(General, GENERAL),
    TYPED_READER(System, SYSTEM),
    TYPED_READER(ServerInfo, SERVER_INFO),
    TYPED_READER(TimeZone, TIME_ZONE),
    TYPED_READER(Storage, STORAGE),
    TYPED_READER(Osd, OSD),
    TYPED_READER(Motion, MOTION),
    TYPED_READER(Audio, AUDIO),
    TYPED_READER(VideoDecoder, VIDEO_DECODER),
    TYPED_READER(Event, EVENT),
    TYPED_READER(EventControl, EVENT_CONTROL),
    TYPED_READER(Control, CONTROL),
    TYPED_READER(Stream, STREAM),
    TYPED_READER(Web, WEB),
    TYPED_READER(Middle, MIDDLE),
    TYPED_READER(TcpServer, TCP_SERVER),
};
#undef TYPED_READER

// A record of any reader, exactly as large, on the heap: a byte written beyond it is caught.
class AnyRecord {
public:
    explicit AnyRecord(const TypedReader& reader) : reader_(reader), bytes_(reader.table.record_size, 0xA5)
    {
        reader.fallback(bytes_.data());
    }

    int32_t read(const std::string& path) { return reader_.read(path.c_str(), bytes_.data()); }

    // The field as it could stand in the file.
    [[nodiscard]] std::string text(const zep::ConfKey& key) const
    {
        const uint8_t* field = bytes_.data() + key.offset;
        if (is_text(key)) return {field, field + strnlen(reinterpret_cast<const char*>(field), key.size)};
        int32_t number;
        memcpy(&number, field, sizeof number);
        if (!key.words) return std::to_string(number);
        std::istringstream words(key.words);
        std::string word;
        for (int32_t i = 0; i <= number; ++i) words >> word;
        return word;
    }

    // Texts are terminated, numbers within their range.
    [[nodiscard]] bool sound() const
    {
        for (const zep::ConfKey& key : reader_.table.keys) {
            std::string value = text(key);
            if (is_text(key) ? value.size() >= key.size
                             : !key.words && (std::stol(value) < key.min || std::stol(value) > key.max))
                return false;
        }
        return true;
    }

    // Of all keys, in the table's order.
    [[nodiscard]] std::vector<std::string> texts() const
    {
        std::vector<std::string> all;
        for (const zep::ConfKey& key : reader_.table.keys) all.push_back(text(key));
        return all;
    }

    static bool is_text(const zep::ConfKey& key)
    {
        return key.store != zep::conf_store_int32 && key.store != zep::conf_store_choice;
    }

private:
    const TypedReader& reader_;
    std::vector<uint8_t> bytes_;
};
