// The media drivers' part of vcam status: what is bound to what, what is in use, how loud it is.
#pragma once

#include "sim/models/page.hpp"
#include "tools/cli/json.hpp"

#include <memory>
#include <string>

namespace vcam {

// Null when no media driver was used since the camera was made.
std::unique_ptr<media::Page> read_media();

void print_media(const media::Page& page);
cli::Json media_json(const media::Page& page);
// The ways of sound as a graph for dot(1).
std::string media_dot(const media::Page* page);

} // namespace vcam
