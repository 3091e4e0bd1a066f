#pragma once
// The headless main job: the controller and render loop with no window, publishing frames
// to shared memory until stopped, a frame count is reached or a signal arrives.
#include "app/LVCommandLine.h"
#include "core/LVEffectRegistry.h"

#include <QElapsedTimer>
#include <QString>

class Lumaveil;

// Fills the chain as the command line asks: --source/--effect by catalogue name, else
// --setup, else the auto-load setup, else the embedded default. False, with error, when a
// name is unknown or the setup cannot be loaded; the chain is then left empty.
bool LVBuildChain(Lumaveil& app, const LVCommandLine& commandLine, QString* error);
// The source a drop of these files would make (movies: a Movie playlist; images: a Slide
// Show). False, with error, when a file is missing or not a regular file, or the files mix
// movies and images or are neither.
bool LVSourceForFiles(Lumaveil& app, const QStringList& files, LVEffectRef* source, QString* error);
// The embedded default: the test pattern with a clock or title overlay, for the kinds
// that are installed.
void LVLoadEmbeddedDefault(Lumaveil& app);
// "Test Pattern > Clock", or "(empty)".
QString LVChainDescription(const Lumaveil& app);

// Runs the job; sinceStart measures from process start. Answers the exit status.
int LVRunHeadless(const LVCommandLine& commandLine, const LVEffectFolders& folders, const QElapsedTimer& sinceStart);

// Starts compiling compositions on a worker thread (logged and skipped when it cannot).
void LVStartProgramBuilder();
// Stops the worker and answers status; when a compile is still running it ends the process
// at once with status instead.
int LVStopProgramBuilder(int status);
