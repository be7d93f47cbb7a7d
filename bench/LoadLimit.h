#pragma once

#include <string>

// What a core can do at best, for comparison with what the kernels do.

/// Seconds for one texel of 32 rows in the first-level cache: its loads, those of its weight, and
/// the multiply-adds, with registers of this instruction set. 0: not known on this machine.
double MeasureTexel(const std::string& rInstructionSet);

/// Cycles per second of this core at work with its widest registers; 0: not known on this machine.
double MeasureClock();
