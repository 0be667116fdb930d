// An exploration as one page without outside parts.
#include "sim/base/text.hpp"
#include "sim/explore/report.hpp"

#include <explore_page.inc> // made from page/ by web/embed.cmake
#include <random>
#include <string_view>

namespace vcam::explore {
namespace {

using cli::Json;

Json names_json()
{
    Json out = Json::array();
    for (const StateName& row : state_names())
        out.push_back({{"name", row.name},
                       {"sign", std::string(1, row.sign)},
                       {"color", row.color},
                       {"left", row.left},
                       {"person", row.person}});
    return out;
}

std::string_view view(const char* begin, size_t size) { return {begin, size}; }

} // namespace

Json map_of(const Report& report)
{
    Json data = {{"command", report.command},
                 {"date", report.date},
                 {"words", report.words},
                 {"options", report.options},
                 {"fingerprint", report.fingerprint},
                 {"seed", report.seed},
                 {"states", report.states},
                 {"names", names_json()},
                 {"forms", Json::array()},
                 {"steps", Json::array()},
                 {"classes", Json::array()},
                 {"points", Json::array()},
                 {"broken", Json::array()}};
    for (const Form form : forms_of(flash::Kind::write))
        data["forms"].push_back({name_of(form), words_of(form)});
    for (const Step& s : report.steps)
        data["steps"].push_back({s.partition, s.what, s.offset, s.size, s.seconds, s.process});
    for (const Class& c : report.classes)
        data["classes"].push_back(
            {{"state", c.name}, {"words", c.words}, {"points", c.points}, {"again", c.again}});
    Json& points = data["points"];
    for (const ReportPoint& p : report.points)
        for (const uint32_t number : {p.step, uint32_t(p.form), p.state}) points.push_back(number);
    for (const Broken& b : report.broken)
        data["broken"].push_back({{"point", b.point}, {"text", text_of(b.promise).text}, {"what", b.what}});
    return data;
}

std::string page_of(const Report& report)
{
    std::random_device random;
    const std::string nonce = text("%u%u", random(), random());
    std::string page(view(page_html, sizeof page_html));
    replace_first(
        page, "<meta name=\"policy\">",
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src 'nonce-" +
            nonce + "'; style-src 'nonce-" + nonce + "'; base-uri 'none'; form-action 'none'\">");
    replace_first(page, "<link rel=\"stylesheet\" href=\"page.css\">",
                  "<style nonce=\"" + nonce + "\">" + std::string(view(page_css, sizeof page_css)) +
                      "</style>");
    replace_first(page, "<script src=\"page.js\" defer></script>",
                  "<script type=\"application/json\" id=\"data\" nonce=\"" + nonce + "\">" +
                      in_script_element(map_of(report).dump(-1, ' ', false, Json::error_handler_t::replace)) +
                      "</script><script nonce=\"" + nonce + "\">" +
                      std::string(view(page_js, sizeof page_js)) + "</script>");
    return page;
}

} // namespace vcam::explore
