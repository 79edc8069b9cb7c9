#include "tesselctl/Output.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace tessel::ctl {

namespace {

    // Columns a text takes, counting code points rather than bytes.
    size_t width(std::string_view text)
    {
        return std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
    }

    std::string dump(const Json& value, int indent)
    {
        return value.dump(indent, ' ', false, Json::error_handler_t::replace);
    }

} // namespace

Output::Output(bool json)
    : _json(json)
{
}

void Output::document(const Json& value) const { std::cout << dump(value, 2) << std::endl; }

void Output::jsonLine(const Json& value) const { std::cout << dump(value, -1) << std::endl; }

void Output::line(std::string_view text) const { std::cout << printable(text) << std::endl; }

void Output::lines(const Lines& lines) const
{
    for (const auto& [key, value] : lines)
        std::cout << printable(key) << ": " << printable(value) << '\n';
    std::cout.flush();
}

void Output::table(const std::vector<std::string>& headers, const std::vector<std::vector<std::string>>& rows) const
{
    std::vector<std::vector<std::string>> cells { headers };
    for (const auto& row : rows) {
        cells.emplace_back();
        for (const auto& cell : row)
            cells.back().push_back(printable(cell));
    }
    std::vector<size_t> widths(headers.size(), 0);
    for (const auto& row : cells)
        for (size_t column = 0; column < row.size() && column < widths.size(); ++column)
            widths[column] = std::max(widths[column], width(row[column]));
    for (const auto& row : cells) {
        std::string line;
        for (size_t column = 0; column < row.size() && column < widths.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size())
                line += std::string(widths[column] - width(row[column]) + 2, ' ');
        }
        std::cout << line << '\n';
    }
    std::cout.flush();
}

std::string Output::printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (size_t at = 0; at < text.size(); ++at) {
        auto byte = static_cast<unsigned char>(text[at]);
        // C1 controls are two bytes in UTF-8: C2 80 to C2 9F.
        bool c1 = byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0
            && static_cast<unsigned char>(text[at + 1]) >= 0x80;
        if (byte >= 0x20 && byte != 0x7F && !c1) {
            result += text[at];
            continue;
        }
        if (byte == '\n')
            result += "\\n";
        else if (byte == '\t')
            result += "\\t";
        else {
            unsigned value = c1 ? static_cast<unsigned char>(text[++at]) : byte;
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", value);
            result += escaped;
        }
    }
    return result;
}

} // namespace tessel::ctl
