// What the three shells offer with the installed completions.
#include "tests/support/camera.hpp"

#include <cstring>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

namespace {

// In a folder with the camera "camera" and the file "sound.wav".
struct Line {
    const char* words; // the last one is completed
    const char* offers;
    const char* not_offers = "\n\n";
};
constexpr Line kLines[] = {
    {"vcam ne", "new"},
    {"vcam new --fla", "--flash"},
    {"vcam new --flash na", "nand", "sound.wav"},
    {"vcam new --model Z", "", "sound.wav"},
    {"vcam run camera --mic so", "sound.wav"},
    {"vcam run ca", "camera"},
    {"vcam rtc camera --fault b", "bcd"},
    {"zep-audio record --codec lp", "lpcm"},
    {"zep-station run --json sou", "sound.wav"},
    {"fwpkg check sou", "sound.wav"},
    {"fwpkg build --version ", "3", "sound.wav"},
};

std::string tool_of(const std::string& words) { return words.substr(0, words.find(' ')); }

class Completion : public testing::Test {
protected:
    Completion() { write_file(camera.folder() / "sound.wav", ""); }
    [[nodiscard]] std::string in_folder(const std::string& line) const
    {
        return say("cd " + camera.folder().string() + "; " + line + " 2>&1").text;
    }
    Camera camera;
};

} // namespace

TEST_F(Completion, BashOffersWordsFilesCamerasAndFaults)
{
    const auto offered = [&](const std::string& words, const std::string& last = "") {
        const std::string tool = tool_of(words);
        std::string function = "_" + tool;
        for (char& c : function)
            if (c == '-') c = '_';
        return in_folder("bash -c '. " COMPLETIONS "/" + tool + "; COMP_WORDS=(" + words + last +
                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + function +
                         "; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    };
    for (const Line& line : kLines) {
        const std::string words = line.words;
        const std::string text = offered(words, words.back() == ' ' ? "\"\"" : "");
        EXPECT_THAT(text, HasSubstr(line.offers)) << words;
        EXPECT_THAT(text, Not(HasSubstr(line.not_offers))) << words;
    }
    EXPECT_THAT(offered("vcam new --flash = n"), HasSubstr("nor\nnand"));
    EXPECT_THAT(offered("vcam fault camera ", "\"mtd1 w\""), HasSubstr("mtd1 write\n"));
    EXPECT_THAT(offered("vcam run camera -- upg"), HasSubstr("upgrade"));
    EXPECT_THAT(offered("vcam get camera /tm"), HasSubstr("/tmp"));
}

TEST_F(Completion, FishOffersTheSame)
{
    for (const Line& line : kLines) {
        const std::string text =
            in_folder("fish --no-config -c 'source " COMPLETIONS "/" + tool_of(line.words) +
                      ".fish; complete -C \"" + line.words + "\"'");
        EXPECT_THAT(text, HasSubstr(line.offers)) << line.words;
        EXPECT_THAT(text, Not(HasSubstr(line.not_offers))) << line.words;
    }
    EXPECT_THAT(in_folder("fish --no-config -c 'source " COMPLETIONS
                          "/vcam.fish; complete -C \"vcam fault camera mtd\"'"),
                HasSubstr("mtd1 write"));
}

// Typed at a terminal: the first tab of a new shell completes already.
constexpr char kTyped[] = R"(zmodload zsh/zpty
zpty z zsh -f -i
zpty -w z 'fpath=(COMPLETIONS $fpath); autoload -U compinit; compinit -u -D; setopt nolistbeep; LISTMAX=1000
zle-line-init() { print -n "<"in">" }; zle -N zle-line-init; tell() { print -r "<"$BUFFER">" }; zle -N tell
bindkey "^Xt" tell'
zpty -r z line '*<in>*'
zpty -w -n z $'WORDS\t\t\x18t'
zpty -r z line '*<TOOL*>*'
print -r -- $line
)";

TEST_F(Completion, ZshOffersTheSameFromTheFirstTabOn)
{
    for (const Line& line : kLines) {
        std::string script = kTyped;
        const std::pair<const char*, std::string> places[] = {
            {"COMPLETIONS", COMPLETIONS}, {"WORDS", line.words}, {"TOOL", tool_of(line.words)}};
        for (const auto& [name, text] : places) script.replace(script.find(name), strlen(name), text);
        write_file(camera.folder() / "zsh", script);
        EXPECT_THAT(in_folder("timeout 300 zsh -f zsh"), HasSubstr(line.offers)) << line.words;
    }
}
