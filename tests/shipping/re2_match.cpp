// re2_match.cpp - what RE2 finds: re2_match EXPRESSION RECORDS, a file of records, each ended by a byte 0. For each record a line
// of JSON with the named groups that took part in hexadecimal, or null.

#include <re2/re2.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    RE2::Options bytes;
    bytes.set_encoding(RE2::Options::EncodingLatin1);
    const RE2 expression(argv[1], bytes);
    if (!expression.ok())
    {
        std::fprintf(stderr, "%s\n", expression.error().c_str());
        return 1;
    }
    std::ifstream file(argv[2], std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const int count = expression.NumberOfCapturingGroups() + 1;
    std::vector<re2::StringPiece> groups(static_cast<std::size_t>(count));
    for (std::size_t at = 0; at < all.size(); at = all.find('\0', at) + 1)
    {
        const std::string_view record = std::string_view(all).substr(at, all.find('\0', at) - at);
        const re2::StringPiece text(record.data(), record.size());
        if (!expression.Match(text, 0, text.size(), RE2::UNANCHORED, groups.data(), count))
        {
            std::puts("null");
            continue;
        }
        const char* separator = "{";
        for (const auto& [number, name] : expression.CapturingGroupNames())
        {
            const re2::StringPiece& found = groups[static_cast<std::size_t>(number)];
            if (found.data() == nullptr)
                continue;
            std::printf("%s\"%s\":\"", separator, name.c_str());
            for (const char c : found)
                std::printf("%02x", static_cast<unsigned char>(c));
            std::printf("\"");
            separator = ",";
        }
        std::puts(*separator == '{' ? "{}" : "}");
    }
    return 0;
}
