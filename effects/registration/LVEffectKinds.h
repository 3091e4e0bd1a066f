#pragma once
// Registers the effect kinds of this folder's libraries and installs the maker the
// catalogue's composition files use.
void LVRegisterEffectKinds();
