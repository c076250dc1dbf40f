#include "decode.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli_parser.h"
#include "gp4file.h"
#include "outfile.h"
#include "progress.h"

namespace mivo4::host {

namespace {

bool endsWith(std::string s, const char *suffix) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t n = std::strlen(suffix);
    return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

}  // namespace

int decodeCommand(const std::string &path, const std::string &output) {
    const bool png = endsWith(output, ".png");
    if (!png && !endsWith(output, ".pbm") && output != "-")
        throw UsageError{"decode writes .pbm or .png files (or - for PBM on standard output), not " + output};
    Gp4File g;
    std::string error;
    if (!loadGp4File(path, g, error)) return fail(error);
    const Gp4Header &h = g.header;
    if (!h.damage.empty()) return fail(path + ": the header is damaged: " + h.damage.front());
    AtomicOutput out;
    if (!out.open(output, path)) return fail(out.error());
    std::unique_ptr<BilevelWriter> writer = png ? pngWriter(out.stream(), *h.width, *h.height, output)
                                                : pbmWriter(out.stream(), *h.width, *h.height, output);
    G4Check c = checkG4(g.coded, *h.width, *h.height, [&](const uint8_t *row) { return writer->row(row); });
    if (!writer->error().empty()) return fail(writer->error());
    if (!c.decodes)
        return fail(path + ": the coded data does not decode to " + std::to_string(*h.width) + " x " +
                    std::to_string(*h.height) + " pixels: " + c.problem);
    if (!writer->finish()) return fail(writer->error());
    writer.reset();
    if (!out.commit()) return fail(out.error());
    return 0;
}

}  // namespace mivo4::host
