// Large, realistic configurations made up for benchmarks: deterministic for a seed, and clean
// under every pcfg check, so that a benchmark measures the common path rather than reporting.
#pragma once

#include <cstdint>

#include "config.h"

namespace pcfg::bench {

// A configuration of PERIPHERALS registry entries, built rig by rig: each rig of 20 is an FPGA,
// ten cameras (described for CamX or for the Cadmor controller, with lens, power, stream and
// register data), two camera sets that list their cameras (and the cameras list them), a logical
// camera, and six other peripherals. Dependencies point only backwards, within a rig and from
// one rig's FPGA to the previous one, so they form a DAG. One template camera, system and
// adapter options for every system in use, and a HAL stream table complete it. A smaller count
// than 20 (or a remainder) yields a partial rig whose references still all resolve.
Config MakeSyntheticConfig(int peripherals, uint32_t seed);

}  // namespace pcfg::bench
