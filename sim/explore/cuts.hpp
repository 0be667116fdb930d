// Every cut of the power in a recorded run: the points and the states that they leave.
#pragma once

#include "sim/explore/forms.hpp"
#include "sim/explore/names.hpp"
#include "sim/explore/recording.hpp"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vcam::explore {

struct Point {
    uint32_t operation; // counts from 0; in names from 1
    Form form;
    uint32_t state; // index
};
std::string name_of(const Point& point); // "12/half"

struct State {
    Description description;
    const StateName* name; // null: none fits
    uint32_t first;        // point
    uint32_t points;       // how many lead here
};

// Which operations wrote the settings partition as a whole: [begin, end). Equal: none did.
struct Stretch {
    size_t begin = 0, end = 0;
};
Stretch package_stretch(const std::vector<Operation>& operations);

struct Cuts {
    std::vector<Point> points;
    std::vector<State> states;
};

// A run as recorded: the flash before and after, and what happened in between.
struct Run {
    const Camera& camera;
    const Recording& recording;
    Flash old, finished;
    uint64_t seed;
    std::string ending = {}; // as the camera tells it
};

Versions versions_of(const Run& run); // without the defaults
Files settings_in(const Run& run, const Flash& flash);
// The state of a flash that is no cut of the run, such as the one that a further run leaves.
Description describe(const Run& run, const Versions& versions, const Flash& flash);
// `told` gets the share of the work done, 0 to 1, now and then. Throws when the record does not lead to the finished flash.
Cuts cut_everywhere(const Run& run, const Versions& versions, const std::function<void(double)>& told);
// The flash at one point.
Flash flash_at(const Run& run, const Point& point);
// The flash after the first bytes_done bytes of the operation.
Flash flash_at(const Run& run, uint32_t operation, size_t bytes_done);

} // namespace vcam::explore
