// Reading profile files: one value, or the names of a section's entries.
#include <mivo4/profile.h>
#include <mivo4/stream.h>
#include <mivo4/util.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "zep_xxxx/iniline.h"
#include "zep_xxxx/iniload.h"
#include "zep_xxxx/text.h"

namespace {

using mivo4::ini::LineBuffer;

// One enclosing pair of double quotes is removed; doubled quotes inside stay.
void unquote(char *value) {
    size_t n = std::strlen(value);
    if (n >= 2 && value[0] == '"' && value[n - 1] == '"') {
        std::memmove(value, value + 1, n - 2);
        value[n - 2] = '\0';
    }
}

// The index of the first line after the section's header, or none. Every
// line that is not a comment counts as a header, the way the section names
// of these files have always been found.
std::optional<size_t> findSection(const mivo4::ini::Profile &p, const char *section) {
    LineBuffer wanted;
    mivo4::copyText(wanted, sizeof wanted, section);
    stripChars(wanted, 0);
    auto at = p.firstLine.find(mivo4::ini::SectionKey(wanted));
    if (at == p.firstLine.end()) return std::nullopt;
    return at->second + 1;
}

// Calls visit(name, value) for each entry of the section starting at line
// first, until visit returns false or the next section begins. The reader
// expects name=value without blanks around "=": a blank before it belongs to
// the name.
template <class Visit>
void forEachEntry(const mivo4::ini::Profile &p, size_t first, Visit visit) {
    for (size_t i = first; i < p.lines.size(); ++i) {
        const std::string_view raw = p.lines[i];
        if (!raw.empty() && raw[0] == '[') return;
        LineBuffer line;
        std::memcpy(line, raw.data(), raw.size());
        line[raw.size()] = '\0';
        stripChars(line, STRIP_KEEP_BRACKETS | STRIP_KEEP_QUOTES);
        if (line[0] == '\0' || line[0] == ';') continue;
        char *value = line + std::strlen(line);
        if (char *eq = std::strchr(line, '=')) {
            *eq = '\0';
            value = eq + 1;
        }
        if (!visit(line, value)) return;
    }
}

}  // namespace

uint32_t GetPrivateProfileString(const char *section, const char *key, const char *defaultValue,
                                 char *buffer, uint32_t size, const char *file) {
    if (section == nullptr || section[0] == '\0' || defaultValue == nullptr) return 0;
    if (buffer == nullptr || size == 0) return 0;
    // Like a value, the default is cut to the buffer and then left unterminated.
    std::memset(buffer, 0, size);
    uint32_t result = static_cast<uint32_t>(std::min<size_t>(std::strlen(defaultValue), size));
    std::memcpy(buffer, defaultValue, result);

    if (file == nullptr || file[0] == '\0') return result;
    // A profile that is missing, or that is not a regular file, gives the
    // default; the profile read last serves while it is unchanged.
    const mivo4::ini::Found found = mivo4::ini::Load(file, true);
    if (found.state != mivo4::ini::State::Loaded) return result;
    const mivo4::ini::Profile &p = *found.profile;
    if (std::optional<size_t> first = findSection(p, section)) {
        if (key != nullptr) {
            forEachEntry(p, *first, [&](char *name, char *value) {
                if (stricmp(name, key) != 0) return true;
                unquote(value);
                result = static_cast<uint32_t>(std::min<size_t>(std::strlen(value), size));
                std::memset(buffer, 0, size);
                std::memcpy(buffer, value, result);  // terminated only by the zeroed buffer
                return false;
            });
        } else {
            // The entry names, each followed by a zero byte; the list ends with a
            // second zero byte while there is room.
            std::memset(buffer, 0, size);
            uint32_t offset = 0;
            forEachEntry(p, *first, [&](char *name, char *) {
                uint32_t length = static_cast<uint32_t>(std::strlen(name));
                if (static_cast<uint64_t>(offset) + length + 1 >= size) {
                    std::memcpy(buffer + offset, name, std::min(length, size - offset));
                    buffer[size - 1] = '\0';
                    if (size >= 2) buffer[size - 2] = '\0';
                    offset = size - 1;
                    return false;
                }
                std::memcpy(buffer + offset, name, length + 1);
                offset += length + 1;
                return true;
            });
            result = offset;
        }
    }
    return result;
}

// A missing or empty value gives the default; a value that is not a number gives 0.
int32_t GetPrivateProfileInt(const char *section, const char *key, int32_t defaultValue,
                             const char *file) {
    char text[33] = "";
    if (GetPrivateProfileString(section, key, "", text, 32, file) == 0) return defaultValue;
    int32_t value = 0;
    return StrIsAnInteger(text, &value) != 0 ? value : 0;
}

uint32_t GetProfileString(const char *section, const char *key, const char *defaultValue,
                          char *buffer, uint32_t size) {
    return GetPrivateProfileString(section, key, defaultValue, buffer, size, ZEP_DEFAULT_PROFILE);
}

int32_t GetProfileInt(const char *section, const char *key, int32_t defaultValue) {
    return GetPrivateProfileInt(section, key, defaultValue, ZEP_DEFAULT_PROFILE);
}
