// The records of requests whose numbers do not say how long they are.
#pragma once

#include "sim/models/model.hpp"

namespace vcam::cuse {

Record record_of(const Model& model, uint32_t request);

} // namespace vcam::cuse
