// The directory tree of a compound document, and its names: UTF-16, compared
// without regard to case after the format's upper-casing.
#include <clocale>
#include <cwctype>
#include <locale.h>

#include "zep_xxxx/cfbdoc.h"

namespace mivo4::zep::cfb {

namespace {

// Upper-casing by the Unicode character tables (simple, one unit to one
// unit), as the format asks. The tables come from the C.UTF-8 locale, taken
// on its own so that the host's locale is left alone; where that locale is
// missing only ASCII letters are upper-cased.
// The locale lives as long as the module and is given back when it unloads.
class UnicodeLocale {
public:
    UnicodeLocale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr))) {}
    ~UnicodeLocale() {
        if (locale_ != static_cast<locale_t>(nullptr)) freelocale(locale_);
    }
    UnicodeLocale(const UnicodeLocale &) = delete;
    UnicodeLocale &operator=(const UnicodeLocale &) = delete;
    locale_t get() const { return locale_; }

private:
    locale_t locale_;
};

uint16_t UpperUnit(uint16_t unit) {
    static const UnicodeLocale unicode;
    if (unit >= 0xD800 && unit <= 0xDFFF) return unit;  // halves of a pair stay as they are
    if (unicode.get() != static_cast<locale_t>(nullptr)) {
        wint_t upper = towupper_l(unit, unicode.get());
        return upper <= 0xFFFF ? static_cast<uint16_t>(upper) : unit;
    }
    return unit >= 'a' && unit <= 'z' ? static_cast<uint16_t>(unit - 'a' + 'A') : unit;
}

}  // namespace

size_t NameLength(const DOCDIRENTRY &entry) {
    if (entry.ByteCount % 2 != 0 || entry.ByteCount < 4 || entry.ByteCount > 64) return 0;
    return entry.ByteCount / 2 - 1;
}

bool SameName(const DOCDIRENTRY &entry, const std::u16string &name) {
    size_t n = NameLength(entry);
    if (n != name.size()) return false;
    for (size_t i = 0; i < n; ++i) {
        if (UpperUnit(entry.szName[i]) != UpperUnit(static_cast<uint16_t>(name[i]))) return false;
    }
    return true;
}

std::u16string FromUtf8(const std::string &text) {
    static constexpr uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};  // shortest form only
    std::u16string out;
    size_t i = 0;
    while (i < text.size()) {
        auto c = static_cast<uint8_t>(text[i]);
        uint32_t cp = 0xFFFD;
        size_t used = 1;
        size_t extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 4;
        if (extra == 0) {
            cp = c;
        } else if (extra <= 3 && i + extra < text.size()) {
            uint32_t v = c & (0x3Fu >> extra);
            bool ok = true;
            for (size_t k = 1; k <= extra && ok; ++k) {
                auto t = static_cast<uint8_t>(text[i + k]);
                ok = (t & 0xC0) == 0x80;
                v = v << 6 | (t & 0x3F);
            }
            if (ok && v >= kSmallest[extra] && v <= 0x10FFFF && !(v >= 0xD800 && v <= 0xDFFF)) {
                cp = v;
                used = extra + 1;
            }
        }
        i += used;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
    }
    return out;
}

std::string ToUtf8(const uint16_t *units, size_t count) {
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        uint32_t cp = units[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (units[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | cp >> 6));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | cp >> 12));
            out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | cp >> 18));
            out.push_back(static_cast<char>(0x80 | (cp >> 12 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

// Walks the whole tree from the root once, without recursion: every entry
// reached must be a storage or stream with a well-formed name, reached only
// once (so no entry points back into the tree), and inside the directory.
// Each storage's children are kept in the order of its sibling tree.
int32_t Document::WalkTree() {
    const auto count = static_cast<uint32_t>(entries.size());
    nodes.assign(count, Node{kNoStream, {}});
    std::vector<uint8_t> seen(count, 0);
    seen[0] = 1;
    nodes[0].index = 0;
    std::vector<uint32_t> storages{0};
    std::vector<uint32_t> pending;
    while (!storages.empty()) {
        uint32_t storage = storages.back();
        storages.pop_back();
        pending.clear();
        uint32_t cur = entries[storage].Child;
        while (cur != kNoStream || !pending.empty()) {
            while (cur != kNoStream) {
                if (cur >= count || seen[cur] != 0) return DOC_E_DIRECTORY;
                const DOCDIRENTRY &e = entries[cur];
                if ((e.EntryFlags != kTypeStorage && e.EntryFlags != kTypeStream) || NameLength(e) == 0) {
                    return DOC_E_DIRECTORY;
                }
                seen[cur] = 1;
                pending.push_back(cur);
                cur = e.LeftSib;
            }
            cur = pending.back();
            pending.pop_back();
            nodes[storage].children.push_back(cur);
            nodes[cur].index = cur;
            if (entries[cur].EntryFlags == kTypeStorage) storages.push_back(cur);
            cur = entries[cur].RightSib;
        }
    }
    return DOC_OK;
}

int64_t Document::Find(const char *path) const {
    std::vector<std::string> names;
    std::string part;
    for (const char *p = path;; ++p) {
        if (*p == '/' || *p == '\0') {
            if (!part.empty()) names.push_back(part);
            part.clear();
            if (*p == '\0') break;
        } else {
            part.push_back(*p);
        }
    }
    if (names.empty()) return DOC_E_ARGUMENT;
    uint32_t at = 0;
    for (const std::string &name : names) {
        if (entries[at].EntryFlags == kTypeStream) return DOC_E_NOTFOUND;
        std::u16string wanted = FromUtf8(name);
        uint32_t found = kNoStream;
        for (uint32_t child : nodes[at].children) {
            if (SameName(entries[child], wanted)) {
                found = child;
                break;
            }
        }
        if (found == kNoStream) return DOC_E_NOTFOUND;
        at = found;
    }
    return at;
}

}  // namespace mivo4::zep::cfb
