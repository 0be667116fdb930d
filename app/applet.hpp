// One row of the applet table.
#pragma once

namespace zep {

struct Applet {
    const char* name;
    int (*handler)(int argc, char** argv);
};

} // namespace zep
