#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <algorithm>
#include <array>

namespace depattr::cli {

std::span<ReportFormat const> reportFormats() {
    static constexpr std::array formats{
        ReportFormat{"text", "FormatText", &writeTextReport},
        ReportFormat{"concise", "FormatConcise", &writeConciseReport},
        ReportFormat{"json", "FormatJson", &writeJsonReport},
        ReportFormat{"sarif", "FormatSarif", &writeSarifReport},
        ReportFormat{"github", "FormatGithub", &writeGithubReport},
        ReportFormat{"dot", "FormatDot", &writeDotReport},
        ReportFormat{"svg", "FormatSvg", &writeSvgReport},
        ReportFormat{"png", "FormatPng", &writePngReport},
    };
    return formats;
}

ReportFormat const* findReportFormat(std::string_view name) {
    auto const formats = reportFormats();
    auto const found = std::find_if(formats.begin(), formats.end(), [&](auto const& f) { return f.name == name; });
    return found == formats.end() ? nullptr : &*found;
}

std::string reportFormatChoices() {
    std::string choices;
    for (auto const& format : reportFormats()) {
        choices += (choices.empty() ? "" : ", ") + std::string(format.name);
    }
    return choices;
}

std::string reportFormatHelp() {
    auto const formats = reportFormats();
    std::string help;
    for (std::size_t i = 0; i < formats.size(); ++i) {
        if (i > 0) {
            help += text(i + 1 == formats.size() ? "ListLastSeparator" : "ListSeparator");
        }
        help += text(formats[i].helpKey);
    }
    return help;
}

}  // namespace depattr::cli
