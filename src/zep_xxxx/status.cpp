// The host's status callback and small driver-interface services.
#include <mivo4/util.h>

int32_t CallGetSet_Status(LPGETSETSTATUS callback, intptr_t hostData, int32_t op, int32_t item,
                          intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7) {
    if (callback == nullptr) return 0;
    int32_t answer = callback(hostData, op, item, a4, a5, a6, a7);
    // A plain progress report answered non-zero: ask the host once more (op 2,
    // item 61, with a block of ten zero words) and take that answer.
    if (answer != 0 && op == 0 && item == 0) {
        int32_t block[10] = {};
        return callback(hostData, 2, 61, 0, 0, 0, reinterpret_cast<intptr_t>(block));
    }
    return answer;
}

void esc_mode(int32_t) {}

// This platform offers no alternative fonts.
int32_t AltFontsAvailable(void) { return 0; }
