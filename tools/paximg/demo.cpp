// `paximg demo [DIR]`: the built-in test chart, every operation family of the
// build run on it with typical parameters, and a contact sheet (index.html).
#include "paximg.h"

#include "stb_easy_font.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace paximg {
namespace {

struct Canvas {
    int width, height;
    std::vector<uint8_t> rgb; // top-down, 3 bytes a pixel
    Canvas(int w, int h, uint8_t fill) : width(w), height(h), rgb((size_t)w * h * 3, fill) {}
    void Set(int x, int y, int r, int g, int b) {
        if (x < 0 || y < 0 || x >= width || y >= height) return;
        uint8_t *p = &rgb[((size_t)y * width + x) * 3];
        p[0] = (uint8_t)r;
        p[1] = (uint8_t)g;
        p[2] = (uint8_t)b;
    }
    void Fill(int x0, int y0, int w, int h, int r, int g, int b) {
        for (int y = y0; y < y0 + h; ++y)
            for (int x = x0; x < x0 + w; ++x) Set(x, y, r, g, b);
    }
    // Text from stb_easy_font's quads, each font unit drawn as scale pixels.
    void Text(int x0, int y0, const char *text, int scale, int r, int g, int b) {
        static char buffer[60000];
        int quads = stb_easy_font_print(0, 0, const_cast<char *>(text), nullptr, buffer,
                                        (int)sizeof buffer);
        for (int q = 0; q < quads; ++q) {
            const float *v = reinterpret_cast<const float *>(buffer + q * 64);
            // Vertices are 16 bytes: x, y, z and a colour; corners 0 and 2 span the quad.
            int qx0 = (int)v[0], qy0 = (int)v[1], qx1 = (int)v[8], qy1 = (int)v[9];
            Fill(x0 + qx0 * scale, y0 + qy0 * scale, (qx1 - qx0) * scale, (qy1 - qy0) * scale,
                 r, g, b);
        }
    }
};

void HsvToRgb(double h, double s, double v, int rgb[3]) {
    double c = v * s, hp = std::fmod(h / 60.0, 6.0), x = c * (1 - std::fabs(std::fmod(hp, 2) - 1));
    double r = 0, g = 0, b = 0;
    if (hp < 1) r = c, g = x;
    else if (hp < 2) r = x, g = c;
    else if (hp < 3) g = c, b = x;
    else if (hp < 4) g = x, b = c;
    else if (hp < 5) r = x, b = c;
    else r = c, b = x;
    double m = v - c;
    rgb[0] = (int)std::lround((r + m) * 255);
    rgb[1] = (int)std::lround((g + m) * 255);
    rgb[2] = (int)std::lround((b + m) * 255);
}

// The chart, 480 x 320: hue wheel, saturated, pastel and skin-like patches,
// grey ramp and steps, fine lines, a zone plate, and text.
Dib MakeChart() {
    Canvas c(480, 320, 255);
    const double pi = 3.14159265358979323846;
    // Hue wheel: hue by angle, saturation by radius, full value.
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 160; ++x) {
            double dx = x - 79.5, dy = y - 79.5, r = std::sqrt(dx * dx + dy * dy);
            if (r > 74) continue;
            double hue = std::atan2(-dy, dx) * 180 / pi;
            if (hue < 0) hue += 360;
            int rgb[3];
            HsvToRgb(hue, r / 74, 1.0, rgb);
            c.Set(x, y, rgb[0], rgb[1], rgb[2]);
        }
    // Saturated primaries and secondaries, their pastels, skin-like tones.
    const int saturated[6][3] = {{255, 0, 0}, {255, 255, 0}, {0, 255, 0},
                                 {0, 255, 255}, {0, 0, 255}, {255, 0, 255}};
    const int pastel[6][3] = {{255, 182, 193}, {253, 253, 150}, {190, 240, 190},
                              {175, 238, 238}, {174, 198, 247}, {221, 190, 240}};
    const int skin[6][3] = {{255, 224, 196}, {241, 194, 167}, {224, 172, 138},
                            {198, 134, 100}, {161, 102, 71}, {112, 72, 50}};
    const int(*rows[3])[3] = {saturated, pastel, skin};
    for (int row = 0; row < 3; ++row)
        for (int i = 0; i < 6; ++i)
            c.Fill(172 + i * 50, 8 + row * 50, 46, 46, rows[row][i][0], rows[row][i][1],
                   rows[row][i][2]);
    // Grey ramp 0..255 and sixteen steps.
    for (int x = 0; x < 464; ++x) c.Fill(8 + x, 166, 1, 24, x * 255 / 463, x * 255 / 463, x * 255 / 463);
    for (int i = 0; i < 16; ++i) c.Fill(8 + i * 29, 192, 29, 16, i * 17, i * 17, i * 17);
    // Fine lines: vertical and horizontal one-pixel stripes, then diagonals.
    for (int x = 0; x < 48; ++x) c.Fill(8 + x, 216, 1, 96, (x & 1) ? 255 : 0, (x & 1) ? 255 : 0, (x & 1) ? 255 : 0);
    for (int y = 0; y < 96; ++y) c.Fill(60, 216 + y, 48, 1, (y & 1) ? 255 : 0, (y & 1) ? 255 : 0, (y & 1) ? 255 : 0);
    for (int y = 0; y < 96; ++y)
        for (int x = 0; x < 48; ++x)
            if ((x + y) % 6 < 2) c.Set(112 + x, 216 + y, 0, 0, 0);
    // Zone plate: rings whose frequency grows outwards, in grey.
    for (int y = 0; y < 96; ++y)
        for (int x = 0; x < 96; ++x) {
            double dx = x - 47.5, dy = y - 47.5;
            int v = (int)std::lround(127.5 + 127.5 * std::cos((dx * dx + dy * dy) * pi / 192));
            c.Set(164 + x, 216 + y, v, v, v);
        }
    // Text-like edges: dark on light and light on dark.
    c.Text(268, 220, "PaxImage 12.08", 2, 0, 0, 0);
    c.Text(268, 244, "Quick brown fox", 2, 40, 40, 160);
    c.Fill(264, 268, 208, 44, 32, 32, 32);
    c.Text(270, 274, "Jumps over 12", 2, 255, 255, 255);
    c.Text(270, 294, "lazy dogs.", 2, 255, 220, 120);

    Dib dib = NewDib(c.width, c.height, 24, 0);
    DibView v(dib.get());
    for (int y = 0; y < c.height; ++y)
        for (int x = 0; x < c.width; ++x) {
            const uint8_t *p = &c.rgb[((size_t)y * c.width + x) * 3];
            uint8_t *q = v.Row(y) + 3 * x;
            q[0] = p[2];
            q[1] = p[1];
            q[2] = p[0];
        }
    return dib;
}

void MakeDirectory(const std::string &dir) {
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (!std::filesystem::is_directory(dir, error))
        Fail("cannot create the folder '" + dir + "'");
}

std::string HtmlEscape(const std::string &s) {
    std::string out;
    for (char ch : s) {
        if (ch == '&') out += "&amp;";
        else if (ch == '<') out += "&lt;";
        else if (ch == '>') out += "&gt;";
        else if (ch == '"') out += "&quot;";
        else out += ch;
    }
    return out;
}

void WriteContactSheet(const DemoContext &context) {
    char version[32] = {};
    GetPaxImageVersion(version, (int)sizeof version);
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<title>PaxImage demo</title>\n<style>\n"
        "body{font-family:sans-serif;margin:16px;background:#f4f4f4;color:#222}\n"
        "h1{font-size:20px;margin:0 0 4px}h2{font-size:16px;margin:18px 0 6px}\n"
        "p{margin:0 0 8px;font-size:13px}\n"
        ".grid{display:flex;flex-wrap:wrap;gap:10px}\n"
        "figure{margin:0;background:#fff;padding:6px;border:1px solid #ccc;width:480px}\n"
        "figure img{width:480px;height:320px;display:block}\n"
        "figcaption{font-size:12px;margin-top:4px}\n"
        "</style>\n</head>\n<body>\n"
        "<h1>PaxImage demo</h1>\n<p>Library: " +
        HtmlEscape(version) +
        ". Every image below was made from the test chart by <code>paximg demo</code>.</p>\n";
    std::vector<std::string> sections;
    for (const auto &e : context.Entries())
        if (std::find(sections.begin(), sections.end(), e.section) == sections.end())
            sections.push_back(e.section);
    for (const std::string &section : sections) {
        html += "<h2>" + HtmlEscape(section) + "</h2>\n<div class=\"grid\">\n";
        for (const auto &e : context.Entries()) {
            if (e.section != section) continue;
            // Shown at their own size: the dithers and fine lines alias when scaled.
            html += "<figure><a href=\"" + HtmlEscape(e.file) + "\"><img src=\"" +
                    HtmlEscape(e.file) + "\" alt=\"" + HtmlEscape(e.caption) +
                    "\"></a><figcaption>" + HtmlEscape(e.caption) + "</figcaption></figure>\n";
        }
        html += "</div>\n";
    }
    html += "</body>\n</html>\n";
    WriteFileAtomically(context.Dir() + "/index.html", std::vector<uint8_t>(html.begin(), html.end()));
}

int RunDemo(const std::vector<std::string> &args) {
    Options options(args, {});
    if (options.Positional().size() > 1)
        UsageError("unexpected argument '" + options.Positional()[1] + "'");
    const std::string dir = options.Positional().empty() ? "demo-out" : options.Positional()[0];
    MakeDirectory(dir);
    Dib chart = MakeChart();
    DemoContext context(dir, chart.get());
    context.Add("chart", "The test chart: hue wheel, patches, grey ramp, lines, text", chart.get(),
                "Input");
    for (const DemoStep &step : DemoSteps()) step.run(context);
    WriteContactSheet(context);
    std::printf("Wrote %zu images and %s/index.html\n", context.Entries().size(), dir.c_str());
    return kExitOk;
}

const Registrar kDemo(Command{
    "demo", "run every operation on a built-in test chart; write PNGs and index.html",
    "Usage: paximg demo [DIR]\n"
    "\n"
    "Renders a test chart (hue wheel, saturated, pastel and skin-like patches, grey\n"
    "ramp, fine lines, text), runs every operation family of this build on it with\n"
    "typical parameters, and writes one PNG per result and an index.html contact\n"
    "sheet with a caption per image into DIR (default: demo-out).\n",
    900, RunDemo});

} // namespace

void DemoContext::Add(const std::string &name, const std::string &caption, HGLOBAL dib,
                      const std::string &section) {
    const std::string file = name + ".png";
    WriteFileAtomically(dir_ + "/" + file, EncodePng(dib));
    entries_.push_back({file, caption, section});
}

void DemoContext::AddRawBytes(const std::string &name, const std::string &caption, HGLOBAL dib,
                              const std::string &section) {
    // A copy whose tag says RGB, so that the stored bytes show as colours.
    DibView v(dib);
    Dib copy(GlobalAlloc(GHND, v.UsedBytes()));
    if (!copy) Fail("out of memory");
    {
        pax::Lock lock(copy.get());
        std::memcpy(lock.data(), v.Base(), v.UsedBytes());
        lock.header().biCompression = 0;
    }
    Add(name, caption, copy.get(), section);
}

} // namespace paximg
