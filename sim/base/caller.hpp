// The process whose call a model answers: the model's own, unless a server answers for another one.
#pragma once

#include <cstddef>

namespace vcam::caller {

bool is_other(); // a server answers
// Its number, as the journal has it.
int pid();

// Memory of that process; false where it has none at the address.
bool load(const void* from, void* to, size_t size);
bool store(void* to, const void* from, size_t size);

// Sends it the signal, which its calling thread takes at once unless it holds the signal back. The camera's first process,
// which serves calls of others, gets none.
void interrupt(int number);

// While this lives, its thread answers for the process of another thread, given by its number.
class Answering {
public:
    explicit Answering(int thread);
    ~Answering();
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

private:
    int before_;
};

} // namespace vcam::caller
