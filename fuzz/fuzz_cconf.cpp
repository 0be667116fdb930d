// The typed readers: a record stays sound.
#include "fuzz/fuzz.hpp"
#include "tests/unit/common/reader_list.hpp"

void try_bytes(const std::string& bytes)
{
    if (bytes.empty()) return;
    AnyRecord record(kReaders[uint8_t(bytes[0]) % kReaders.size()]);
    must(record.read(MemoryFile(bytes.substr(1)).path()) == 1);
    must(record.sound());
}
