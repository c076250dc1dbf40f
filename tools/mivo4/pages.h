// One export command's pictures: the input read (a file, standard input read
// once, or the test chart), the page or pages asked for, each turned upright
// and written to its own output as a whole or not at all.
#pragma once

#include <cstdint>
#include <string>

#include "exporter.h"
#include "module.h"

namespace mivo4::host {

// Whether OUTPUT names one file per page: it holds a page number, "%d" or
// "%0Nd" (N from 1 to 9: at least N digits, zeros in front). Any other OUTPUT
// is taken literally, percent signs and all.
bool isPageTemplate(const std::string &output);

// What is wrong with a page-numbered OUTPUT, "" when nothing is: in one, "%%"
// stands for a percent sign and any other "%" is a mistake.
std::string pageTemplateProblem(const std::string &output);

// The file of page (counted from 1) of a page-numbered OUTPUT.
std::string pageOutputName(const std::string &output, uint32_t page);

// A --page value: a whole number from 1. False when it is not one.
bool parsePageNumber(const std::string &text, uint32_t &page);

// Exports input ("-" for standard input, "" for the test chart) to output:
// settings.page, else every page when output is page-numbered, else page 1
// with a warning when the file has more. Stops at the first page that fails
// (those written before it stay). Answers the exit code; says why on
// standard error.
int exportPictures(const Module &module, const std::string &input, const std::string &output,
                   const ExportSettings &settings);

}  // namespace mivo4::host
