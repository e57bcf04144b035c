#pragma once
// The output formats of `depattr analyze`: one file each in this folder, one
// line each in the table of Formats.cpp. The table gives --format its choices,
// its help text and the writer of each choice.
//
// Adding a format: write cli/report/<Name>.cpp with a writer of the signature
// below, declare it here, and add its line to the table.

#include "cli/Report.hpp"

#include <filesystem>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace depattr::cli {

// Everything a format may show.
struct ReportContext {
    Report const& report;
    dependency::graph::Graph const& graph;
    std::string_view toolVersion;
    bool colour;                          // severities may be coloured (a terminal that wants it)
    std::filesystem::path workingFolder;  // file locations are relative to it
};

using ReportWriter = void (*)(std::ostream& out, ReportContext const& context);

struct ReportFormat {
    std::string_view name;  // the value of --format
    char const* helpKey;    // its entry in --format's help, in the program's catalog
    ReportWriter write;
};

// Every format, in the order --format's help lists them; the first is the default.
std::span<ReportFormat const> reportFormats();

// The format of a --format value, or null.
ReportFormat const* findReportFormat(std::string_view name);

// The names of every format, comma-separated, for messages.
std::string reportFormatChoices();

// --format's help: every format's entry, joined in the locale's way of listing.
std::string reportFormatHelp();

void writeTextReport(std::ostream& out, ReportContext const& context);
void writeConciseReport(std::ostream& out, ReportContext const& context);
void writeJsonReport(std::ostream& out, ReportContext const& context);
void writeSarifReport(std::ostream& out, ReportContext const& context);
void writeGithubReport(std::ostream& out, ReportContext const& context);
void writeDotReport(std::ostream& out, ReportContext const& context);
// The DOT report drawn by Graphviz's dot program as SVG or PNG; an error
// naming the program when it is not on PATH.
void writeSvgReport(std::ostream& out, ReportContext const& context);
void writePngReport(std::ostream& out, ReportContext const& context);

// Graphviz's dot program as found on PATH, or nothing.
std::optional<std::filesystem::path> graphvizProgram();

}  // namespace depattr::cli
