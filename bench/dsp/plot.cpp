// Line plots as SVG.
#include "bench/dsp/plot.hpp"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zep::bench {
namespace {

constexpr double kWidth = 380, kHeight = 220, kLeft = 52, kTop = 34, kGapX = 40, kGapY = 66;
// Ours is red and thick in every picture; a peer keeps its colour, the kinds of one have one hue.
constexpr struct {
    const char *name, *colour;
} kColours[] = {{"zep", "#c8452f"},           {"speex-8", "#3a78b5"},     {"speex-mdf", "#8fb6d9"},
                {"speex-mdf+res", "#3a78b5"}, {"soxr-HQ", "#8a8a8a"},     {"zita-48", "#3f9b4f"},
                {"webrtc-mod", "#9ccf9f"},    {"webrtc-high", "#3f9b4f"}, {"webrtc-ext", "#8a5bb0"},
                {"webrtc-aecm", "#c29a1c"}};

const char* colour_of(const Curve& c)
{
    for (const auto& row : kColours)
        if (c.name == row.name) return row.colour;
    return "#111111";
}
const char* width_of(const Curve& c) { return c.name == "zep" ? "1.8" : "1.2"; }

class Drawing {
public:
    Drawing(FILE* f, const Axes& axes) : f_(f), axes_(axes) {}

    void panel(const Panel& p, double left, double top)
    {
        left_ = left;
        top_ = top;
        right_ = 0;
        for (const Curve& c : p.curves)
            if (!c.points.empty()) right_ = std::max(right_, c.points.back().first);
        frame(p.title);
        for (const Curve& c : p.curves) curve(c);
    }

    void text(double x, double y, const char* anchor, const std::string& s)
    {
        fprintf(f_, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, s.c_str());
    }

    void legend(const Panel& p, double x, double y)
    {
        for (const Curve& c : p.curves) {
            fprintf(f_, "<path d=\"M%.1f %.1fh22\" stroke=\"%s\" stroke-width=\"2\"/>\n", x, y - 4,
                    colour_of(c));
            text(x + 28, y, "start", c.name);
            x += 50 + 7 * double(c.name.size());
        }
    }

private:
    double at_x(double x) const { return left_ + x / right_ * kWidth; }
    double at_y(double y) const
    {
        return top_ +
               (axes_.most - std::clamp(y, axes_.least, axes_.most)) / (axes_.most - axes_.least) * kHeight;
    }

    void frame(const std::string& title)
    {
        fprintf(
            f_,
            "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" stroke=\"#444\"/>\n",
            left_, top_, kWidth, kHeight);
        text(left_ + kWidth / 2, top_ - 8, "middle", title);
        for (double y = std::ceil(axes_.least / axes_.grid) * axes_.grid; y <= axes_.most; y += axes_.grid) {
            fprintf(f_, "<path d=\"M%.1f %.1fh%.1f\" stroke=\"#ddd\"/>\n", left_, at_y(y), kWidth);
            char label[24];
            snprintf(label, sizeof label, "%g", y);
            text(left_ - 6, at_y(y) + 4, "end", label);
        }
        double step = .5; // so that no more than a dozen labels stand side by side
        while (right_ > 11 * step) step *= 2;
        for (double x = 0; x <= right_ * 1.001; x += step) {
            char label[24];
            snprintf(label, sizeof label, "%g", x);
            text(at_x(std::min(x, right_)), top_ + kHeight + 16, "middle", label);
        }
        text(left_ + kWidth / 2, top_ + kHeight + 32, "middle", axes_.x);
        fprintf(f_, "<text transform=\"translate(%.1f %.1f) rotate(-90)\" text-anchor=\"middle\">%s</text>\n",
                left_ - 36, top_ + kHeight / 2, axes_.y.c_str());
    }

    void curve(const Curve& c)
    {
        fprintf(f_, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"%s\" points=\"", colour_of(c),
                width_of(c));
        for (const auto& [x, y] : c.points) fprintf(f_, "%.1f,%.1f ", at_x(x), at_y(y));
        fprintf(f_, "\"/>\n");
    }

    FILE* f_;
    const Axes& axes_;
    double left_ = 0, top_ = 0, right_ = 0;
};

} // namespace

void write_svg(const char* path, const std::vector<Panel>& panels, const Axes& axes)
{
    FILE* f = fopen(path, "w");
    if (!f) {
        perror(path);
        exit(1);
    }
    const double wide = 2 * (kLeft + kWidth) + kGapX;
    const double rows = std::ceil(double(panels.size()) / 2), high = kTop + rows * (kHeight + kGapY) + 20;
    fprintf(f,
            "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" "
            "font-size=\"11\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"#fff\"/>\n",
            wide, high);
    Drawing drawing(f, axes);
    for (size_t i = 0; i < panels.size(); ++i)
        drawing.panel(panels[i], kLeft + double(i % 2) * (kWidth + kLeft + kGapX / 2),
                      kTop + double(i / 2) * (kHeight + kGapY));
    if (!panels.empty()) drawing.legend(panels[0], kLeft, high - 12);
    fprintf(f, "</svg>\n");
    if (fclose(f) != 0) {
        perror(path);
        exit(1);
    }
}

} // namespace zep::bench
