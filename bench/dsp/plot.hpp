// Line plots as SVG: panels of curves on common axes.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zep::bench {

struct Curve {
    std::string name;
    std::vector<std::pair<double, double>> points; // x rising
};

struct Panel {
    std::string title;
    std::vector<Curve> curves;
};

struct Axes {
    std::string x, y;
    double least, most, grid; // of y
};

// Writes the panels two in a row, with one legend; ends the program when the file cannot be written.
void write_svg(const char* path, const std::vector<Panel>& panels, const Axes& axes);

} // namespace zep::bench
