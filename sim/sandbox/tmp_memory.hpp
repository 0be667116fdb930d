// /tmp of the camera is memory, though a folder of the host stands for it: a start empties it of what the run before left.
#pragma once

#include "sim/base/camera.hpp"

#include <string>
#include <vector>

namespace vcam {

// What the last run left in /tmp: paths below root/, a folder before what is in it. What was put there since, also by hand, is
// not among them. Of a run whose end nobody noted, as vcam itself was killed, all that is there.
std::vector<std::string> left_in_tmp(const Camera& camera);

// At a start: removes what the last run left.
void empty_tmp(const Camera& camera);

// At a run's end: what is there now is that run's.
void note_tmp(const Camera& camera);
// At the end of a start that failed: what was put there is for the next one.
void keep_tmp(const Camera& camera);
// Before something is put there: what is there is the last run's, where its end was not noted and the camera is off.
void note_tmp_late(const Camera& camera);

} // namespace vcam
