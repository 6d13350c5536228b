// Counts what is allocated: linking this in replaces malloc and its kin, which operator new calls
// too, for the whole program and all that it loads.
#pragma once

/// Allocations of the calling thread since its start.
long allocations();
