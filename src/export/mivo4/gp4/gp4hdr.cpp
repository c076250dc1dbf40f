// The CALS Type 1 header that opens every GP4 file: sixteen records of 128
// ASCII bytes, blank-padded, without terminators or line ends. Only the pixel
// count and the density vary from file to file.
#include <mivo4/gp4.h>
#include <mivo4/stream.h>

#include <algorithm>
#include <cstring>

namespace {

// Record texts of the fixed records before the pixel count.
constexpr const char *kLeadingRecords[] = {
    "srcdocid: NONE", "dstdocid: NONE", "txtfilid: NONE", "figid: NONE",
    "srcgph: NONE",   "doccls: UNCLASS", "rtype: 1",       "rorient: 000,270",
};
constexpr const char *kNotesRecord = "notes: NONE";
constexpr int kTrailingBlankRecords = 5;

// Appends nData as decimal digits, zero-padded on the left to `digits`
// characters. A value with more digits than the field keeps all of them: the
// padding count saturates at zero instead of wrapping.
void appendPadded(char *field, uint16_t nData, size_t digits) {
    char number[16];
    IntToStr(nData, number);
    size_t length = std::strlen(number);
    size_t zeros = length < digits ? digits - length : 0;
    char *end = field + std::strlen(field);
    std::memset(end, '0', zeros);
    std::memcpy(end + zeros, number, length + 1);
}

// Writes the record text, then blanks up to the record size.
void writeRecord(HZEPIO hOutput, const char *text, const char *blanks) {
    int32_t length = static_cast<int32_t>(std::strlen(text));
    zepWriteChar(hOutput, text, length);
    zepWriteChar(hOutput, blanks, GP4_RECORD_SIZE - length);
}

}  // namespace

int32_t IntToStr(int32_t nData, char *szString) {
    if (nData < 0) return -1;
    // Least significant digit first, then turned round in place.
    int32_t n = 0;
    do {
        szString[n++] = static_cast<char>('0' + nData % 10);
        nData /= 10;
    } while (nData != 0);
    szString[n] = '\0';
    std::reverse(szString, szString + n);
    return 0;
}

int32_t WriteGp4Hdr(HZEPIO hOutput, const GP4_HEADER *lpHeader) {
    if (lpHeader == nullptr) return 0;  // nothing to describe: write nothing
    char blanks[GP4_RECORD_SIZE];
    std::memset(blanks, ' ', sizeof blanks);

    for (const char *text : kLeadingRecords) writeRecord(hOutput, text, blanks);

    // "rpelcnt: 001728,002200": width and height, six digits each.
    char field[GP4_RECORD_SIZE] = "rpelcnt: ";
    appendPadded(field, lpHeader->wImageWidth, 6);
    std::strcat(field, ",");
    appendPadded(field, lpHeader->wImageHeight, 6);
    writeRecord(hOutput, field, blanks);

    // "rdensty: 0300": dots per inch, four digits.
    std::strcpy(field, "rdensty: ");
    appendPadded(field, lpHeader->wDensity, 4);
    writeRecord(hOutput, field, blanks);

    writeRecord(hOutput, kNotesRecord, blanks);
    for (int i = 0; i < kTrailingBlankRecords; ++i)
        zepWriteChar(hOutput, blanks, GP4_RECORD_SIZE);
    return 0;
}
