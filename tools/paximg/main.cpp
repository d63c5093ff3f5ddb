// paximg: colour-image operations of PaxImage from the command line.
//
// Usage: paximg COMMAND [OPTIONS] ...; `paximg --help` lists the commands that
// this build offers (one per operation family of the library).
#include "paximg.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

namespace paximg {
namespace {

int RunVersion(const std::vector<std::string> &args) {
    Options options(args, {});
    options.ExpectPositional({});
    char text[32] = {};
    GetPaxImageVersion(text, (int)sizeof text);
    std::printf("paximg, PaxImage library %s\n", text);
    return kExitOk;
}

const Registrar kVersion(Command{"version", "print the library's version",
                                 "Usage: paximg version\n"
                                 "\n"
                                 "Prints the version text of the library (GetPaxImageVersion).\n",
                                 1000, RunVersion});

void PrintUsage(std::FILE *out) {
    std::fputs("Usage: paximg COMMAND [OPTIONS] INPUT OUTPUT\n"
               "       paximg COMMAND [OPTIONS] INPUT... --output-dir DIR [--format FORMAT]\n"
               "\n"
               "Colour-image operations of the PaxImage library. Images are read from BMP\n"
               "(1, 4, 8, 24 and 32 bits, RLE4 and RLE8 too), PNG or JPEG (turned upright\n"
               "as its EXIF orientation says), and written as .bmp (depth, palette and\n"
               "colour-model tag kept), .png or .jpg (RGB images; grey ones as grey).\n"
               "Every image command also takes:\n"
               "  --output-dir DIR  write each INPUT into DIR under its own name\n"
               "  --format FORMAT   bmp, png or jpg: the outputs' format in DIR, or on\n"
               "                    the standard output (default bmp)\n"
               "  --quality Q       JPEG quality 1..100 (default 90)\n"
               "  -                 as INPUT: the standard input; as OUTPUT: the\n"
               "                    standard output\n"
               "\n"
               "Commands:\n",
               out);
    for (const Command &c : Commands()) std::fprintf(out, "  %-20s %s\n", c.name, c.summary);
    std::fputs("\n"
               "`paximg COMMAND --help` describes a command and its options.\n"
               "Exit status: 0 done, 1 the operation or a file failed, 2 bad usage,\n"
               "130 cancelled (Ctrl-C or the Cancel button); nothing is written then.\n",
               out);
}

int Main(int argc, char **argv) {
    if (argc < 2) {
        PrintUsage(stderr);
        return kExitUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        if (name == "help" && argc > 2) {
            int status = PrintHelp(argv[2]);
            if (status != kExitOk) UsageError(std::string("unknown command '") + argv[2] + "'");
            return status;
        }
        PrintUsage(stdout);
        return kExitOk;
    }
    if (name == "--version") return RunVersion({});
    std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command &c : Commands()) {
        if (name != c.name) continue;
        SetCommandName(c.name);
        if (WantsHelp(args)) return PrintHelp(c.name);
        return c.run(args);
    }
    UsageError("unknown command '" + name + "' (`paximg --help` lists the commands)");
}

} // namespace
} // namespace paximg

int main(int argc, char **argv) {
    const char *command = argc > 1 ? argv[1] : "";
    try {
        return paximg::Main(argc, argv);
    } catch (const paximg::ToolError &e) {
        if (*command && std::strncmp(command, "-", 1) != 0)
            std::fprintf(stderr, "paximg %s: %s\n", command, e.what());
        else
            std::fprintf(stderr, "paximg: %s\n", e.what());
        // A known command points to its own help; anything else to the list.
        if (e.status == paximg::kExitUsage)
            std::fprintf(stderr, "Try `paximg %s--help`.\n",
                         paximg::CommandName().empty() ? "" : (paximg::CommandName() + " ").c_str());
        return e.status;
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "paximg: out of memory\n");
        return paximg::kExitFailed;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "paximg: %s\n", e.what());
        return paximg::kExitFailed;
    }
}
