// PROGRAM TARGET [option of libFuzzer, or input to repeat...]: tries one target. seeds/ has inputs to begin with, words/ what
// its format is made of, cases/ inputs that once were findings. What it finds lies in the build's folder runs/.
#include "fuzz/fuzz.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

const Target* chosen = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    const auto named = [&](const Target& target) {
        return *argc > 1 && target.name == std::string((*argv)[1]);
    };
    const auto found = std::find_if(kTargets.begin(), kTargets.end(), named);
    if (found == kTargets.end()) {
        for (const Target& target : kTargets) puts(target.name);
        exit(*argc > 1 ? 2 : 0);
    }
    chosen = &*found;
    const fs::path work = fs::path(ZEP_FUZZ_WORK) / chosen->name, own = ZEP_FUZZ_FOLDER;
    fs::create_directories(work / "corpus");
    static auto& words = *new std::vector<char*>{(*argv)[0]}; // for the life of the program
    const auto add = [](const std::string& word) { words.push_back(strdup(word.c_str())); };
    add("-close_fd_mask=3");
    add("-max_len=" + std::to_string(chosen->most));
    add("-artifact_prefix=" + work.string() + "/");
    for (const char* name : {chosen->like, chosen->name})
        if (name && fs::exists(own / "words" / name)) add("-dict=" + (own / "words" / name).string());
    bool inputs = false;
    for (int i = 2; i < *argc; ++i) {
        add((*argv)[i]);
        inputs |= (*argv)[i][0] != '-';
    }
    if (!inputs) add(work / "corpus");
    for (const fs::path& folder :
         {own / "seeds" / (chosen->like ? chosen->like : chosen->name), own / "cases" / chosen->name})
        if (!inputs && fs::is_directory(folder)) add(folder);
    *argc = int(words.size());
    words.push_back(nullptr);
    *argv = words.data();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    chosen->try_bytes({reinterpret_cast<const char*>(data), size});
    return 0;
}
