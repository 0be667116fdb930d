// The line's log: a file that only grows, one line of JSON a board.
#pragma once

#include "common/base/fd.hpp"
#include "tools/station/report/report.hpp"

namespace station {

/**
 * A board has its line when its tests end, in one write, on the storage before the station goes on. Until then what is
 * known of it stands in a file of its own beside the log, locked by its station and replaced after each test. A station
 * that crashes or is killed leaves that file; the next one that opens the log gives the board its line from there. A
 * torn last line, of a full disk or a power cut, is ended with a line feed, so that later lines are whole; a reader
 * passes over it. Several stations may share a log. Every error is a std::runtime_error, "FILE: reason".
 */
class BoardLog {
public:
    explicit BoardLog(std::string path);

    void note(const Report& report);   // as far as it has come
    void finish(const Report& report); // its line

private:
    void recover() const;
    [[nodiscard]] bool take_over(const std::string& path) const;
    [[nodiscard]] zep::Fd open_locked(const std::string& path) const;
    void append(const std::string& line) const;

    const std::string path_;
    std::string open_path_; // of the unfinished board
    zep::Fd log_, open_;
};

} // namespace station
