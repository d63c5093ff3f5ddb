// paximg end to end: the test starts the built tool as a user would and
// checks its exit statuses, messages and files. The runs are data, in
// paximg_cases.txt beside this file (its head explains the notation); they
// pin each output with a digest beside worked examples computed by hand.
// Ctrl-C on a terminal is tried here in code.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#ifndef _WIN32
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

// The test runs in the folder of the build's programs. The tool runs in the
// scratch folder made there; the cases name their files relative to it.
#ifdef _WIN32
const fs::path g_tool = fs::absolute("paximg.exe");
const char *const kNoInput = "NUL";
#else
const fs::path g_tool = fs::absolute("paximg");
const char *const kNoInput = "/dev/null";
#endif
fs::path g_dir;

Bytes ReadFile(const fs::path &name) {
    std::ifstream in(g_dir / name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void WriteFile(const fs::path &name, const Bytes &bytes) {
    std::ofstream(g_dir / name, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), (std::streamsize)bytes.size());
}
uint32_t Le(const uint8_t *p, int bytes = 4) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | p[i];
    return v;
}
void Put(uint8_t *p, uint32_t v, int bytes = 4) {
    for (int i = 0; i < bytes; ++i) p[i] = (uint8_t)(v >> (8 * i));
}
size_t Stride(int width, int bits) { return ((size_t)width * bits + 31) / 32 * 4; }

struct ToolRun {
    int status = -1;
    std::string output; // standard error, and standard output unless redirected
};

// Runs the tool in the scratch folder through the shell; standard input from
// `in` (else nothing), standard output into `out` (else with the messages).
ToolRun RunTool(const std::vector<std::string> &args, const std::string &in = "", const std::string &out = "") {
    std::string line = "cd \"" + g_dir.string() + "\" && \"" + g_tool.string() + "\"";
    for (const std::string &a : args) line += " \"" + a + "\"";
    line += " <" + (in.empty() ? kNoInput : in) +
            (out.empty() ? " >tool-output.txt 2>&1" : " >" + out + " 2>tool-output.txt");
    ToolRun result;
    result.status = std::system(line.c_str());
#ifndef _WIN32
    result.status = WIFEXITED(result.status) ? WEXITSTATUS(result.status) : 128 + WTERMSIG(result.status);
#endif
    const Bytes text = ReadFile("tool-output.txt");
    result.output.assign(text.begin(), text.end());
    // A sanitizer's report would also end with status 1.
    EXPECT_EQ(result.output.find("Sanitizer"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("runtime error"), std::string::npos) << result.output;
    return result;
}

// No file is a left-over temporary.
void ExpectNoTemporaries() {
    for (const auto &e : fs::recursive_directory_iterator(g_dir))
        EXPECT_EQ(e.path().filename().string().find(".partial-"), std::string::npos) << e.path();
}

std::string Digest(const Bytes &bytes) { // FNV-1a, 64 bits
    uint64_t h = 14695981039346656037ull;
    for (uint8_t v : bytes) h = (h ^ v) * 1099511628211ull;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", (unsigned long long)h);
    return text;
}
bool IsPng(const Bytes &f) {
    return f.size() > 26 && Bytes(f.begin(), f.begin() + 8) == Bytes{0x89, 'P', 'N', 'G', 13, 10, 26, 10};
}

// A whole BMP file: its sizes agree and every row is there.
bool IsBmp(const Bytes &f) {
    if (f.size() < 54 || f[0] != 'B' || f[1] != 'M' || Le(&f[2]) != f.size() || Le(&f[14]) != 40) return false;
    const int w = (int)Le(&f[18]), h = (int)Le(&f[22]), bits = (int)Le(&f[28], 2);
    const uint32_t entries = bits > 8 ? 0 : Le(&f[46]) ? Le(&f[46]) : 1u << bits;
    return w > 0 && h > 0 && Le(&f[10]) == 54 + entries * 4 && Le(&f[10]) + Stride(w, bits) * h <= f.size();
}
// Width, height, depth, tag and resolution (x, y) of a BMP file.
std::string Header(const Bytes &f) {
    std::string text;
    for (int at : {18, 22, 28, 30, 38, 42})
        text += (at == 18 ? "" : ",") + std::to_string((int)Le(&f[at], at == 28 ? 2 : 4));
    return text;
}
// The colour 0xRRGGBB of pixel (x, y), y = 0 the top row.
uint32_t Pixel(const Bytes &f, int x, int y) {
    const int w = (int)Le(&f[18]), h = (int)Le(&f[22]), bits = (int)Le(&f[28], 2);
    const uint8_t *row = &f[Le(&f[10]) + (h - 1 - y) * Stride(w, bits)];
    if (bits >= 24) return Le(row + x * bits / 8, 3);
    const uint32_t index = row[x * bits / 8] >> (8 - bits - x * bits % 8) & ((1u << bits) - 1);
    return Le(&f[54 + 4 * index], 3);
}
int Distance(uint32_t a, uint32_t b) { // the largest difference of a component
    int d = 0;
    for (int shift : {0, 8, 16}) d = std::max(d, std::abs((int)(a >> shift & 255) - (int)(b >> shift & 255)));
    return d;
}

// One check of a file after a run; the notation is explained at the head
// of paximg_cases.txt.
void Check(const std::string &c) {
    SCOPED_TRACE(c);
    const size_t at = c.find_first_of("#=~:@");
    if (c[0] == '-' || at == std::string::npos) {
        EXPECT_TRUE(c[0] == '-' && !fs::exists(g_dir / c.substr(1)));
        return;
    }
    const fs::path name = c.substr(0, at);
    const std::string arg = c.substr(at + 1);
    if (fs::is_directory(g_dir / name)) {
        EXPECT_EQ(std::distance(fs::directory_iterator(g_dir / name), {}), std::stoi(arg));
        return;
    }
    const Bytes f = ReadFile(name);
    if (c[at] == '#') {
        EXPECT_EQ(Digest(f), arg);
    } else if (c[at] == '=') {
        EXPECT_TRUE(f == ReadFile(arg)) << "not the bytes of " << arg;
    } else if (arg.rfind("png", 0) == 0) {
        ASSERT_TRUE(IsPng(f));
        EXPECT_TRUE(arg == "png" || arg == "png=" + std::to_string(f[24]) + "," + std::to_string(f[25]))
            << +f[24] << "," << +f[25];
    } else if (!IsBmp(f)) {
        ADD_FAILURE() << "not a whole BMP file";
    } else if (c[at] == ':') {
        EXPECT_EQ(Header(f), arg);
    } else if (c[at] == '@') {
        int x = 0, y = 0, d = 0;
        unsigned rgb = 0;
        ASSERT_GE(std::sscanf(arg.c_str(), "%d,%d=%x~%d", &x, &y, &rgb, &d), 3);
        ASSERT_TRUE(x < (int)Le(&f[18]) && y < (int)Le(&f[22]));
        EXPECT_LE(Distance(Pixel(f, x, y), rgb), d) << std::hex << Pixel(f, x, y);
    } else {
        const Bytes other = ReadFile(arg.substr(0, arg.rfind(',')));
        ASSERT_TRUE(IsBmp(other) && Le(&f[18]) == Le(&other[18]) && Le(&f[22]) == Le(&other[22])) << arg;
        const int d = std::stoi(arg.substr(arg.rfind(',') + 1));
        for (int y = 0; y < (int)Le(&f[22]); ++y)
            for (int x = 0; x < (int)Le(&f[18]); ++x)
                ASSERT_LE(Distance(Pixel(f, x, y), Pixel(other, x, y)), d) << x << "," << y;
    }
}

// "file NAME PART...": a file of hexadecimal bytes and slices SOURCE[a:b]
// (b empty: to the end) of files made before.
void MakeFile(std::istream &words) {
    std::string name, part;
    Bytes f;
    for (words >> name; words >> part;) {
        const size_t open = part.find('['), colon = part.find(':');
        if (open == std::string::npos) {
            for (size_t i = 0; i + 1 < part.size(); i += 2)
                f.push_back((uint8_t)std::stoul(part.substr(i, 2), nullptr, 16));
            continue;
        }
        const Bytes source = ReadFile(part.substr(0, open));
        const size_t a = std::stoul(part.substr(open + 1)),
                     b = part[colon + 1] == ']' ? source.size() : std::stoul(part.substr(colon + 1));
        ASSERT_TRUE(a <= b && b <= source.size()) << part;
        f.insert(f.end(), source.begin() + a, source.begin() + b);
    }
    WriteFile(name, f);
}

class Paximg : public testing::Test {
protected:
    static void SetUpTestSuite() {
        g_dir =
            fs::absolute("paximg-tests-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
        fs::create_directories(g_dir / "batch");
    }
    static void TearDownTestSuite() {
        std::error_code ignored;
        fs::remove_all(g_dir, ignored);
    }
    void SetUp() override { ASSERT_TRUE(fs::exists(g_tool)) << g_tool; }
};

// The runs of paximg_cases.txt, in order: each line a file made or
// "STATUS ARGS... | CHECKS...".
TEST_F(Paximg, Cases) {
    std::ifstream in("paximg_cases.txt");
    std::vector<std::string> lines; // a line that starts with a space goes on the one before
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == ' ' && !lines.empty())
            lines.back() += line;
        else
            lines.push_back(line);
    }
    ASSERT_GT(lines.size(), 100u) << "paximg_cases.txt missing or cut short";
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        std::istringstream words(line);
        std::string word, input, output;
        words >> word;
        if (word == "file") {
            MakeFile(words);
            continue;
        }
        const int status = std::stoi(word);
        std::vector<std::string> args;
        while (words >> std::quoted(word) && word != "|")
            if (word[0] == '<' || word[0] == '>')
                (word[0] == '<' ? input : output) = word.substr(1);
            else
                args.push_back(word);
        const ToolRun r = RunTool(args, input, output);
        EXPECT_EQ(r.status, status) << r.output;
        for (bool negated = false; words >> std::ws && !words.eof();) {
            const bool quoted = words.peek() == '"';
            words >> std::quoted(word);
            if (quoted)
                EXPECT_EQ(r.output.find(word) == std::string::npos, negated) << word << " in:\n" << r.output;
            else if (word != "!")
                Check(word);
            negated = !quoted && word == "!";
        }
        ExpectNoTemporaries();
    }
}

#ifndef _WIN32
// On a terminal the tool shows the stand-in's text bar, and Ctrl-C cancels:
// the operation stops, nothing is written, and the status says so.
TEST_F(Paximg, CtrlCOnATerminalCancels) {
    Bytes big(54 + 6000 * 1500); // 2000 x 1500 at 24 bits
    const std::pair<int, uint32_t> fields[] = {{0, 0x4D42}, {2, (uint32_t)big.size()}, {10, 54}, {14, 40}, {18, 2000},
                                               {22, 1500},  {26, 1 | 24 << 16}};
    for (size_t i = 54; i < big.size(); ++i) big[i] = (uint8_t)(i * 131 >> 4);
    for (const auto &field : fields) Put(&big[field.first], field.second);
    WriteFile("big.bmp", big);
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (chdir(g_dir.c_str()) == 0)
            execl(g_tool.c_str(), "paximg", "convert", "--to", "lab", "big.bmp", "big-lab.bmp", nullptr);
        _exit(127);
    }
    // Wait for the bar, press Ctrl-C, and read the terminal until the program ends.
    std::string screen;
    char buffer[256];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (ssize_t n; screen.find("Process Image...") == std::string::npos &&
                    std::chrono::steady_clock::now() < deadline && (n = read(master, buffer, sizeof buffer)) > 0;)
        screen.append(buffer, (size_t)n);
    ASSERT_NE(screen.find("Process Image..."), std::string::npos) << screen;
    kill(pid, SIGINT);
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) screen.append(buffer, (size_t)n);
    int status = 0;
    waitpid(pid, &status, 0);
    close(master);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal";
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_NE(screen.find("cancelled"), std::string::npos) << screen;
    EXPECT_FALSE(fs::exists(g_dir / "big-lab.bmp"));
    ExpectNoTemporaries();
}
#endif

} // namespace
