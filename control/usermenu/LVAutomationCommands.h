#pragma once
// The control interface's commands for the timelines and the user menu:
//   timelines                      [{name, state}] (0 stopped, 1 running, 2 waiting, 3 paused)
//   startTimeline / stopTimeline / pauseTimeline   {"name": ...}, the first timeline of that name
//   userMenu                       [{index, summary, shortcut, exclusive}]
//   invokeUserMenu                 {"index": n}, runs the entry's action
class LVControlCommands;
class LVTimeLineManager;
class LVUserMenu;

// Both must outlive commands.
void LVAddAutomationCommands(LVControlCommands& commands, LVTimeLineManager& timeLines, LVUserMenu& userMenu);
