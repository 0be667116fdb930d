// The device settings that survive an upgrade.
#pragma once

namespace zep {

// Numbers kept in memory; the settings files themselves are kept as copies in /tmp.
struct KeptSettings {
    const char* web_file; // of the web server that the device had when they were read
    const char* web_key;
    int value[6]; // in the order of the table in the source
};

void save_settings(KeptSettings& kept);
void restore_settings(const KeptSettings& kept);

} // namespace zep
