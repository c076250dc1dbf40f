// Records whose layout a C compiler fixes the same way as the layout rules:
// natural alignment, nested records without tail padding, no unions. Each
// entry gives the descriptor and, from the compiler, the record's size and
// every field's offset, type and item count. Generated once from random
// field lists; nothing here comes from the code under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace layouts {

struct Field {
    size_t offset;
    char type;  // C, S, L, F or D
    int count;
};

struct Layout {
    const char *descriptor;
    size_t size;
    std::vector<Field> fields;
};

struct R0 { double f0[5]; };
struct R1 { int16_t f0[3]; };
struct R2 { float f0[3]; uint8_t f1; uint8_t f2[5]; float f3; int16_t f4[2]; uint8_t f5[5]; };
struct R3 { int32_t f0[2]; struct { float m0; int16_t m1; int16_t m2; } f1; int16_t f2; double f3[3]; double f4[3]; };
struct R4 { int16_t f0[2]; uint8_t f1[3]; uint8_t f2[5]; double f3[2]; };
struct R5 { uint8_t f0[5]; double f1; int32_t f2[3]; float f3[2]; };
struct R6 { uint8_t f0; struct { float m0; int16_t m1; int16_t m2; } f1; int16_t f2; };
struct R7 { float f0[3]; float f1[3]; int32_t f2; };
struct R8 { double f0; int16_t f1[5]; int32_t f2[2]; float f3; uint8_t f4[2]; uint8_t f5[3]; double f6; };
struct R9 { int32_t f0; struct { float m0; int16_t m1; int16_t m2; } f1; int16_t f2[5]; };
struct R10 { float f0[3]; struct { float m0; int16_t m1; int16_t m2; } f1; };
struct R11 { float f0[5]; struct { uint8_t m0; uint8_t m1; } f1; int16_t f2[3]; uint8_t f3[2]; struct { int32_t m0; int32_t m1; } f4; };
struct R12 { int32_t f0[5]; };
struct R13 { uint8_t f0[3]; float f1; float f2[3]; double f3[3]; float f4[3]; double f5[2]; struct { uint8_t m0; uint8_t m1; } f6; };
struct R14 { uint8_t f0[2]; float f1[5]; double f2; int16_t f3; int32_t f4[2]; };
struct R15 { int32_t f0; float f1[2]; double f2[2]; double f3; uint8_t f4; int16_t f5[2]; uint8_t f6; };
struct R16 { double f0[3]; int32_t f1[3]; };
struct R17 { int32_t f0[3]; uint8_t f1; struct { int32_t m0; float m1; } f2; struct { int16_t m0; int16_t m1; } f3; int16_t f4[5]; int32_t f5[3]; };
struct R18 { uint8_t f0; int32_t f1[2]; int16_t f2; };
struct R19 { double f0; };
struct R20 { double f0; int16_t f1[3]; uint8_t f2[5]; int32_t f3[2]; };
struct R21 { float f0; uint8_t f1; uint8_t f2[3]; uint8_t f3[5]; uint8_t f4; struct { double m0; int32_t m1; float m2; } f5; int32_t f6; };
struct R22 { float f0[2]; int16_t f1; };
struct R23 { double f0[5]; };
struct R24 { int16_t f0; struct { double m0; int32_t m1; float m2; } f1; int32_t f2; };
struct R25 { int16_t f0[3]; struct { double m0; int32_t m1; float m2; } f1; double f2[5]; uint8_t f3[5]; int16_t f4[5]; };
struct R26 { int16_t f0[5]; uint8_t f1[3]; };
struct R27 { int16_t f0; float f1[5]; float f2; };
struct R28 { int16_t f0; };
struct R29 { double f0[5]; };
struct R30 { uint8_t f0[3]; int16_t f1[3]; struct { int32_t m0; float m1; } f2; uint8_t f3[3]; struct { uint8_t m0; uint8_t m1; } f4; int32_t f5; };
struct R31 { int16_t f0; int32_t f1; struct { int32_t m0; float m1; } f2; struct { int16_t m0; int16_t m1; } f3; float f4; };
struct R32 { uint8_t f0[5]; double f1; struct { int32_t m0; int32_t m1; } f2; uint8_t f3; struct { int32_t m0; int16_t m1; int16_t m2; } f4; double f5; struct { int16_t m0; uint8_t m1; uint8_t m2; } f6; };
struct R33 { uint8_t f0[2]; uint8_t f1; double f2[3]; float f3[3]; uint8_t f4[2]; int16_t f5; int32_t f6; };
struct R34 { float f0[2]; float f1; int16_t f2[2]; int16_t f3; int16_t f4[2]; int16_t f5; };
struct R35 { double f0[5]; int16_t f1[3]; double f2[2]; double f3[5]; };

inline const std::vector<Layout> &All() {
    static const std::vector<Layout> all = {
    {"5D", sizeof(R0), {{offsetof(R0, f0), 'D', 5}}},
    {"3S", sizeof(R1), {{offsetof(R1, f0), 'S', 3}}},
    {"3FC5CF2S5C", sizeof(R2), {{offsetof(R2, f0), 'F', 3}, {offsetof(R2, f1), 'C', 1}, {offsetof(R2, f2), 'C', 5}, {offsetof(R2, f3), 'F', 1}, {offsetof(R2, f4), 'S', 2}, {offsetof(R2, f5), 'C', 5}}},
    {"2L{FSS}S3D3D", sizeof(R3), {{offsetof(R3, f0), 'L', 2}, {offsetof(R3, f1.m0), 'F', 1}, {offsetof(R3, f1.m1), 'S', 1}, {offsetof(R3, f1.m2), 'S', 1}, {offsetof(R3, f2), 'S', 1}, {offsetof(R3, f3), 'D', 3}, {offsetof(R3, f4), 'D', 3}}},
    {"2S3C5C2D", sizeof(R4), {{offsetof(R4, f0), 'S', 2}, {offsetof(R4, f1), 'C', 3}, {offsetof(R4, f2), 'C', 5}, {offsetof(R4, f3), 'D', 2}}},
    {"5CD3L2F", sizeof(R5), {{offsetof(R5, f0), 'C', 5}, {offsetof(R5, f1), 'D', 1}, {offsetof(R5, f2), 'L', 3}, {offsetof(R5, f3), 'F', 2}}},
    {"C{FSS}S", sizeof(R6), {{offsetof(R6, f0), 'C', 1}, {offsetof(R6, f1.m0), 'F', 1}, {offsetof(R6, f1.m1), 'S', 1}, {offsetof(R6, f1.m2), 'S', 1}, {offsetof(R6, f2), 'S', 1}}},
    {"3F3FL", sizeof(R7), {{offsetof(R7, f0), 'F', 3}, {offsetof(R7, f1), 'F', 3}, {offsetof(R7, f2), 'L', 1}}},
    {"D5S2LF2C3CD", sizeof(R8), {{offsetof(R8, f0), 'D', 1}, {offsetof(R8, f1), 'S', 5}, {offsetof(R8, f2), 'L', 2}, {offsetof(R8, f3), 'F', 1}, {offsetof(R8, f4), 'C', 2}, {offsetof(R8, f5), 'C', 3}, {offsetof(R8, f6), 'D', 1}}},
    {"L{FSS}5S", sizeof(R9), {{offsetof(R9, f0), 'L', 1}, {offsetof(R9, f1.m0), 'F', 1}, {offsetof(R9, f1.m1), 'S', 1}, {offsetof(R9, f1.m2), 'S', 1}, {offsetof(R9, f2), 'S', 5}}},
    {"3F{FSS}", sizeof(R10), {{offsetof(R10, f0), 'F', 3}, {offsetof(R10, f1.m0), 'F', 1}, {offsetof(R10, f1.m1), 'S', 1}, {offsetof(R10, f1.m2), 'S', 1}}},
    {"5F{CC}3S2C{LL}", sizeof(R11), {{offsetof(R11, f0), 'F', 5}, {offsetof(R11, f1.m0), 'C', 1}, {offsetof(R11, f1.m1), 'C', 1}, {offsetof(R11, f2), 'S', 3}, {offsetof(R11, f3), 'C', 2}, {offsetof(R11, f4.m0), 'L', 1}, {offsetof(R11, f4.m1), 'L', 1}}},
    {"5L", sizeof(R12), {{offsetof(R12, f0), 'L', 5}}},
    {"3cf3f3d3f2d{cc}", sizeof(R13), {{offsetof(R13, f0), 'C', 3}, {offsetof(R13, f1), 'F', 1}, {offsetof(R13, f2), 'F', 3}, {offsetof(R13, f3), 'D', 3}, {offsetof(R13, f4), 'F', 3}, {offsetof(R13, f5), 'D', 2}, {offsetof(R13, f6.m0), 'C', 1}, {offsetof(R13, f6.m1), 'C', 1}}},
    {"2C5FDS2L", sizeof(R14), {{offsetof(R14, f0), 'C', 2}, {offsetof(R14, f1), 'F', 5}, {offsetof(R14, f2), 'D', 1}, {offsetof(R14, f3), 'S', 1}, {offsetof(R14, f4), 'L', 2}}},
    {"L2F2DDC2SC", sizeof(R15), {{offsetof(R15, f0), 'L', 1}, {offsetof(R15, f1), 'F', 2}, {offsetof(R15, f2), 'D', 2}, {offsetof(R15, f3), 'D', 1}, {offsetof(R15, f4), 'C', 1}, {offsetof(R15, f5), 'S', 2}, {offsetof(R15, f6), 'C', 1}}},
    {"3D3L", sizeof(R16), {{offsetof(R16, f0), 'D', 3}, {offsetof(R16, f1), 'L', 3}}},
    {"3LC{LF}{SS}5S3L", sizeof(R17), {{offsetof(R17, f0), 'L', 3}, {offsetof(R17, f1), 'C', 1}, {offsetof(R17, f2.m0), 'L', 1}, {offsetof(R17, f2.m1), 'F', 1}, {offsetof(R17, f3.m0), 'S', 1}, {offsetof(R17, f3.m1), 'S', 1}, {offsetof(R17, f4), 'S', 5}, {offsetof(R17, f5), 'L', 3}}},
    {"C2LS", sizeof(R18), {{offsetof(R18, f0), 'C', 1}, {offsetof(R18, f1), 'L', 2}, {offsetof(R18, f2), 'S', 1}}},
    {"D", sizeof(R19), {{offsetof(R19, f0), 'D', 1}}},
    {"d3s5c2l", sizeof(R20), {{offsetof(R20, f0), 'D', 1}, {offsetof(R20, f1), 'S', 3}, {offsetof(R20, f2), 'C', 5}, {offsetof(R20, f3), 'L', 2}}},
    {"FC3C5CC{DLF}L", sizeof(R21), {{offsetof(R21, f0), 'F', 1}, {offsetof(R21, f1), 'C', 1}, {offsetof(R21, f2), 'C', 3}, {offsetof(R21, f3), 'C', 5}, {offsetof(R21, f4), 'C', 1}, {offsetof(R21, f5.m0), 'D', 1}, {offsetof(R21, f5.m1), 'L', 1}, {offsetof(R21, f5.m2), 'F', 1}, {offsetof(R21, f6), 'L', 1}}},
    {"2fs", sizeof(R22), {{offsetof(R22, f0), 'F', 2}, {offsetof(R22, f1), 'S', 1}}},
    {"5D", sizeof(R23), {{offsetof(R23, f0), 'D', 5}}},
    {"S{DLF}L", sizeof(R24), {{offsetof(R24, f0), 'S', 1}, {offsetof(R24, f1.m0), 'D', 1}, {offsetof(R24, f1.m1), 'L', 1}, {offsetof(R24, f1.m2), 'F', 1}, {offsetof(R24, f2), 'L', 1}}},
    {"3S{DLF}5D5C5S", sizeof(R25), {{offsetof(R25, f0), 'S', 3}, {offsetof(R25, f1.m0), 'D', 1}, {offsetof(R25, f1.m1), 'L', 1}, {offsetof(R25, f1.m2), 'F', 1}, {offsetof(R25, f2), 'D', 5}, {offsetof(R25, f3), 'C', 5}, {offsetof(R25, f4), 'S', 5}}},
    {"5S3C", sizeof(R26), {{offsetof(R26, f0), 'S', 5}, {offsetof(R26, f1), 'C', 3}}},
    {"S5FF", sizeof(R27), {{offsetof(R27, f0), 'S', 1}, {offsetof(R27, f1), 'F', 5}, {offsetof(R27, f2), 'F', 1}}},
    {"S", sizeof(R28), {{offsetof(R28, f0), 'S', 1}}},
    {"5d", sizeof(R29), {{offsetof(R29, f0), 'D', 5}}},
    {"3c3s{lf}3c{cc}l", sizeof(R30), {{offsetof(R30, f0), 'C', 3}, {offsetof(R30, f1), 'S', 3}, {offsetof(R30, f2.m0), 'L', 1}, {offsetof(R30, f2.m1), 'F', 1}, {offsetof(R30, f3), 'C', 3}, {offsetof(R30, f4.m0), 'C', 1}, {offsetof(R30, f4.m1), 'C', 1}, {offsetof(R30, f5), 'L', 1}}},
    {"SL{LF}{SS}F", sizeof(R31), {{offsetof(R31, f0), 'S', 1}, {offsetof(R31, f1), 'L', 1}, {offsetof(R31, f2.m0), 'L', 1}, {offsetof(R31, f2.m1), 'F', 1}, {offsetof(R31, f3.m0), 'S', 1}, {offsetof(R31, f3.m1), 'S', 1}, {offsetof(R31, f4), 'F', 1}}},
    {"5CD{LL}C{LSS}D{SCC}", sizeof(R32), {{offsetof(R32, f0), 'C', 5}, {offsetof(R32, f1), 'D', 1}, {offsetof(R32, f2.m0), 'L', 1}, {offsetof(R32, f2.m1), 'L', 1}, {offsetof(R32, f3), 'C', 1}, {offsetof(R32, f4.m0), 'L', 1}, {offsetof(R32, f4.m1), 'S', 1}, {offsetof(R32, f4.m2), 'S', 1}, {offsetof(R32, f5), 'D', 1}, {offsetof(R32, f6.m0), 'S', 1}, {offsetof(R32, f6.m1), 'C', 1}, {offsetof(R32, f6.m2), 'C', 1}}},
    {"2CC3D3F2CSL", sizeof(R33), {{offsetof(R33, f0), 'C', 2}, {offsetof(R33, f1), 'C', 1}, {offsetof(R33, f2), 'D', 3}, {offsetof(R33, f3), 'F', 3}, {offsetof(R33, f4), 'C', 2}, {offsetof(R33, f5), 'S', 1}, {offsetof(R33, f6), 'L', 1}}},
    {"2FF2SS2SS", sizeof(R34), {{offsetof(R34, f0), 'F', 2}, {offsetof(R34, f1), 'F', 1}, {offsetof(R34, f2), 'S', 2}, {offsetof(R34, f3), 'S', 1}, {offsetof(R34, f4), 'S', 2}, {offsetof(R34, f5), 'S', 1}}},
    {"5D3S2D5D", sizeof(R35), {{offsetof(R35, f0), 'D', 5}, {offsetof(R35, f1), 'S', 3}, {offsetof(R35, f2), 'D', 2}, {offsetof(R35, f3), 'D', 5}}},
    };
    return all;
}

}  // namespace layouts
