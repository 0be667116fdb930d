// Answers the kernel's requests about one mounted file system, over /dev/fuse and without a library.
#pragma once

#include "sim/jffs2/volume.hpp"

#include <linux/fuse.h>
#include <span>
#include <string_view>

namespace vcam {

class FuseServer {
public:
    // `device` is an opening of /dev/fuse that never waits. Owners are shown where the camera's user space has more than
    // one; else all belongs to the one there is.
    FuseServer(jffs2::Volume& volume, int device, bool owners)
        : volume_(volume), device_(device), owners_(owners)
    {
    }
    enum class Result : uint8_t { served, nothing, ended };
    // Takes the next request and answers it; `nothing` when none waits, `ended` when the file system is not mounted. Where
    // `alive` then is false the answer is kept back: whoever waits for it goes on no more.
    Result serve(bool (*alive)());

private:
    struct Request {
        const fuse_in_header& head;
        std::span<const uint8_t> body;
        template<class T> [[nodiscard]] const T& as() const
        {
            return *reinterpret_cast<const T*>(body.data());
        }
        // The text behind a record of the size; further ones follow the zero.
        [[nodiscard]] const char* text(size_t after = 0) const
        {
            return reinterpret_cast<const char*>(body.data()) + after;
        }
    };
    // The answer: an error below zero, or the bytes.
    struct Reply {
        int error = 0;
        jffs2::Bytes body = {};
    };
    struct Row {
        uint32_t opcode;
        Reply (FuseServer::*answer)(const Request&);
    };
    static const Row kRows[];

    Reply init(const Request& r);
    Reply lookup(const Request& r);
    Reply get_attributes(const Request& r);
    Reply set_attributes(const Request& r);
    Reply make_folder(const Request& r);
    Reply make_node(const Request& r);
    Reply make_link(const Request& r);
    Reply make_file(const Request& r);
    Reply hard_link(const Request& r);
    Reply open(const Request& r);
    Reply read(const Request& r);
    Reply write(const Request& r);
    Reply read_link(const Request& r);
    Reply list(const Request& r);
    Reply unlink(const Request& r);
    Reply remove_folder(const Request& r);
    Reply rename(const Request& r);
    Reply rename_with_flags(const Request& r);
    Reply statistics(const Request& r);
    Reply sync(const Request& r);
    Reply nothing(const Request& r);
    void forget(const Request& r);

    Reply made(const Request& r, const char* name, const jffs2::NewFile& file);
    Reply entry(uint32_t ino);
    [[nodiscard]] fuse_attr shown(const jffs2::Attributes& a) const;
    Reply move(const Request& r, uint64_t folder, const char* names, bool replace);
    void answer(uint64_t unique, const Reply& reply) const;

    jffs2::Volume& volume_;
    const int device_;
    const bool owners_;
    jffs2::Bytes buffer_;
};

} // namespace vcam
