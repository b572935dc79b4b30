#pragma once

// biTStream: the layouts of ISO/IEC 13818-1 and ETSI EN 300 468 tables and descriptors. Its getters
// check no bounds: call the matching *_validate() on every section and descriptor first.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-variable"
#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>
#include <bitstream/mpeg/ts.h>
#pragma GCC diagnostic pop
