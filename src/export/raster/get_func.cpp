// The dispatch table: which handler runs for a function code, and in which
// driver states it may run.
//
// Codes this driver maps to d_noop belong to the host's command set; they are
// accepted in the states listed and ignored. Rows are scanned in table order
// and the order is kept as it has always been (1299 between 1290 and 1291,
// 1314 after 1323), since hosts can read the table.
#include <mivo4/raster.h>

#include "export/raster/element.h"

const FUNCTION_LIST List[DVR_FUNCTION_COUNT] = {
    {1, d_opdv, 1},
    {2, d_cldv, 126},
    {3, d_begp, 18},
    {4, d_begpb, 4},
    {5, d_endp, 8},
    {8, d_noop, 32776},
    {9, d_noop, 32800},
    {778, d_noop, 32800},
    {255, d_noop, 1},
    {269, d_noop, 2},
    {270, d_noop, 2},
    {518, ds_dvwn, 132},
    {519, ds_bgc, 132},
    {520, ds_dvvp, 4},
    {521, ds_vpsm, 132},
    {765, dq_dvvp, 126},
    {766, d_noop, 108},
    {767, dq_dvwn, 126},
    {771, ds_axc, 32904},
    {772, ds_tran, 32904},
    {773, ds_clpr, 32904},
    {774, ds_clip, 32904},
    {1025, d_noop, 33064},
    {1026, d_noop, 33064},
    {1027, d_noop, 33032},
    {1028, d_noop, 33032},
    {1029, d_noop, 33032},
    {1030, d_noop, 33096},
    {1031, d_noop, 33064},
    {1033, d_ca, 32776},
    {1034, d_gdp, 33064},
    {1035, d_noop, 33064},
    {1036, d_noop, 33064},
    {1037, d_noop, 33064},
    {1038, d_noop, 33064},
    {1039, d_noop, 33064},
    {1040, d_noop, 33064},
    {1041, d_noop, 33064},
    {1042, d_noop, 33064},
    {1043, d_noop, 33064},
    {1282, d_noop, 32904},
    {1283, d_noop, 32904},
    {1284, d_noop, 32904},
    {1286, d_noop, 32904},
    {1287, d_noop, 32904},
    {1288, d_noop, 32904},
    {1290, d_noop, 32968},
    {1299, d_noop, 32968},
    {1291, d_noop, 32968},
    {1292, d_noop, 32968},
    {1293, d_noop, 32968},
    {1294, d_noop, 32968},
    {1295, d_noop, 32968},
    {1296, d_noop, 32904},
    {1297, d_noop, 32904},
    {1298, d_noop, 32904},
    {1302, d_noop, 32904},
    {1303, d_noop, 32904},
    {1304, d_noop, 32904},
    {1305, d_noop, 32904},
    {1307, d_noop, 32904},
    {1308, d_noop, 32904},
    {1309, d_noop, 32904},
    {1310, d_noop, 32904},
    {1311, d_noop, 32904},
    {1312, d_noop, 32904},
    {1323, d_noop, 32904},
    {1314, ds_ct, 32904},
    {1537, d_noop, 36863},
    {2310, ds_dm, 32776},
    {3841, d_noop, 127},
    {3842, d_popes, 127},
    {3843, d_empes, 127},
    {1788, d_noop, 8},
};

void *d_noop(void *arg) { return arg; }

// The first row with the code decides; a state outside its mask, or a code
// not in the table, gives d_noop. Before initialisation the state is 0, which
// no mask allows.
DVRFUNCTION getfunc(int32_t code) {
    const MoRastData *s = mivo4::driver::State();
    auto state = static_cast<uint32_t>(s != nullptr ? s->dvrstate : 0);
    for (const FUNCTION_LIST &row : List) {
        if (row.opcode != code) continue;
        return (row.status & state) != 0 ? row.function : d_noop;
    }
    return d_noop;
}

// 2: the code would run now; 0: it would not. Primitives answer for
// themselves. 1323 answers 0 although it is in the table: hosts have always
// been told it is unsupported.
int32_t InquireSupport(int32_t opcode, int32_t arg) {
    if (opcode == 1034) return InqGDPSupport(arg);
    if (opcode == 1323) return 0;
    return getfunc(opcode) != d_noop ? 2 : 0;
}
