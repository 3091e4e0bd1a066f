#pragma once
// Registers every compiled-in effect kind (sources, effects, transitions) with the
// effect class table, and installs the composition effect kind in the registry.
void LVRegisterAllKinds();
