// The module's fixed string table: the profile key names.
#include <mivo4/setup.h>

#include <array>
#include <cstring>
#include <string_view>

namespace {

struct StringEntry {
    uint16_t id;
    std::string_view text;
};

// Searched in this order. Identifiers 18, 19 and 25 are not here: asking for
// them yields the fallback "Not Defined", which is also a key of its own.
constexpr std::array<StringEntry, 17> kStrings{{
    {0, "~Defaults"},
    {1, "~Mode"},
    {2, "~Header"},
    {3, "~Default Mode"},
    {4, "Driver"},
    {6, "DefaultFileSpec"},
    {7, "Font"},
    {11, "Color Mode"},
    {15, "User-Defined Patterns"},
    {17, "Resolution Mode"},
    {20, "Width"},
    {21, "Height"},
    {22, "File Type"},
    {13, "GP4 Export"},
    {23, "Size Mode"},
    {24, "Line Mode"},
    {65535, "Not Defined"},
}};

}  // namespace

// Copies the text with its terminator when it fits in lSize bytes, else
// exactly lSize bytes (unterminated). Returns the text's length, or 0 for an
// unknown identifier, whose text is the fallback "Not Defined".
int32_t LoadString(uint32_t, uint32_t lId, char *pszOutput, int32_t lSize) {
    std::string_view text = kStrings.back().text;
    int32_t result = 0;
    for (const StringEntry &e : kStrings) {
        if (e.id == lId) {
            text = e.text;
            result = static_cast<int32_t>(text.size());
            break;
        }
    }
    if (pszOutput != nullptr && lSize > 0) {
        if (text.size() + 1 <= static_cast<size_t>(lSize)) {
            std::memcpy(pszOutput, text.data(), text.size());
            pszOutput[text.size()] = '\0';
        } else {
            std::memcpy(pszOutput, text.data(), static_cast<size_t>(lSize));
        }
    }
    return result;
}
