#pragma once
// The studio's half of the control interface: cut, transitions, the studio's properties,
// the reads a remote panel needs, and the per-button actions addressed by name.
class LVControlCommands;
class LVStudio;

// The studio must outlive commands.
void LVAddStudioCommands(LVControlCommands& commands, LVStudio& studio);
