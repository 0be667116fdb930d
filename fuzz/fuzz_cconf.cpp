// The typed readers: a record stays sound, and holds what the rules of the scan say.
#include "fuzz/fuzz_file.hpp"
#include "tests/unit/common/scan_rules.hpp"

namespace {

scan_rules::Values values(const TypedReader& reader, const AnyRecord& record)
{
    scan_rules::Values all;
    for (const zep::ConfKey& key : reader.table.keys) all.push_back(record.text(key));
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    const TypedReader& reader = kReaders[data[0] % kReaders.size()];
    const std::string content(data + 1, data + size);
    FuzzFile file(data + 1, size - 1);
    AnyRecord record(reader);
    scan_rules::Values before = values(reader, record);
    must(record.read(file.path()) == 1);
    must(record.sound());
    must(values(reader, record) == scan_rules::after_reading(reader, before, content));
    return 0;
}
