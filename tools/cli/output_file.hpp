// The way in which the host tools write a file that their user has named.
#pragma once

#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace cli {

// What an output may replace, beside an empty file.
struct OutputRule {
    const char* kind = nullptr;                    // "a firmware package"; null: no file is replaced
    bool (*is_kind)(int fd, off_t size) = nullptr; // of an existing regular file, open for reading
    bool force = false;                            // replace a file of any kind
    mode_t mode = 0666;                            // of a new file, less the mask of the process
    bool binary = false;                           // refused on a terminal, unless forced
};
OutputRule wav_rule(bool force); // replaces WAV files
// Whether a file begins with these bytes, for an OutputRule.
bool begins_with(int fd, std::string_view head);

/**
 * One output. A regular file appears under its name when it is complete and on the storage; until
 * then, and after any error, what stood there stays. A device node, a pipe and /dev/stdout are never
 * replaced or removed: all bytes are written into them by commit(). "-" is /dev/stdout. Symbolic links are
 * followed and stay. Every error is a std::runtime_error whose text begins with the output's name.
 */
class OutputFile {
public:
    // Looks at the place and changes nothing, so that a wrong name costs no work. A file that is read for this
    // output is refused, with --force too.
    OutputFile(std::string path, const OutputRule& rule, const std::vector<std::string>& inputs = {});
    ~OutputFile();
    OutputFile(OutputFile&&) = delete;

    // Makes the unfinished file; write() does so by itself. It has no name where the file system can do that, so
    // that a process killed in between leaves nothing; elsewhere the signals that end a process remove it.
    void begin();
    void write(const void* data, size_t size);
    void write(std::string_view bytes) { write(bytes.data(), bytes.size()); }
    // The bytes written so far, for reading and seeking.
    [[nodiscard]] int fd() const { return fd_; }
    void commit();
    // Whether it is this process's standard output, where no text may stand then.
    [[nodiscard]] bool is_stdout() const;

private:
    enum class Place { fresh, file, stream };

    void find_place();
    void keep_apart(const std::string& input) const;
    void judge_existing(const OutputRule& rule) const;
    void take_stream();
    void copy_to_stream() const;
    void give_mode() const;
    void give_name();
    void put_in_place();
    [[noreturn]] void refuse(const std::string& reason) const;
    [[noreturn]] void refuse_errno(const char* what) const;

    mode_t mode_;
    std::string path_;   // as the user wrote it
    std::string target_; // with its symbolic links followed
    Place place_ = Place::fresh;
    struct stat there_ = {}; // what stands at the target, unless it is fresh
    std::string temporary_;  // name of the unfinished file, if it has one
    int fd_ = -1;
    int stream_ = -1;
};

} // namespace cli
