// The files of the page, which the build puts into the program.
#include "sim/web/page.hpp"
#include "sim/base/text.hpp"

#include <page_files.inc> // made from page/ by embed.cmake
#include <random>

namespace vcam::web {
namespace {

std::string_view view(const char* begin, size_t size) { return {begin, size}; }

const PageFile kFiles[] = {
    {"/", "text/html; charset=utf-8", view(page_html, sizeof page_html)},
    {"/page.css", "text/css; charset=utf-8", view(page_css, sizeof page_css)},
    {"/page.js", "text/javascript; charset=utf-8", view(page_js, sizeof page_js)},
};

} // namespace

std::span<const PageFile> page_files() { return kFiles; }

// A policy of its own, as no server sends one: nothing from outside, no script but the page's.
std::string frozen_page(const std::string& events, const std::string& known)
{
    std::random_device random;
    const std::string nonce = std::to_string(random()) + std::to_string(random());
    std::string page(kFiles[0].content);
    replace_first(
        page, "<meta name=\"policy\">",
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src 'nonce-" +
            nonce + "'; style-src 'nonce-" + nonce +
            "'; img-src data:; base-uri 'none'; form-action 'none'\">");
    replace_first(page, "<link rel=\"stylesheet\" href=\"page.css\">",
                  "<style nonce=\"" + nonce + "\">" + std::string(kFiles[1].content) + "</style>");
    replace_first(page, "<script src=\"page.js\" defer></script>",
                  "<script type=\"application/json\" id=\"frozen\" nonce=\"" + nonce + "\">{\"events\":[" +
                      in_script_element(events) + "],\"known\":" + in_script_element(known) + "}</script>");
    replace_first(page, "</body>",
                  "<script nonce=\"" + nonce + "\">" + std::string(kFiles[2].content) + "</script></body>");
    return page;
}

} // namespace vcam::web
