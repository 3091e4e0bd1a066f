#pragma once
// Restarting for a new video size: the live chain is kept in a file the new process reads
// back, so the user finds the chain they had.
#include <QString>

class Lumaveil;

// Where the chain waits for the next start: in the user's Lumaveil data folder.
QString LVRestartChainPath();
// Archives the live chain into path (atomically, readable by the user only).
bool LVSaveChainForRestart(const Lumaveil& app, const QString& path, QString* error);
// Adds the archived chain from path to the (empty) live chain and removes the file. Refuses
// links, other non-regular files and files too large to be a chain.
bool LVRestoreChain(Lumaveil& app, const QString& path, QString* error);
