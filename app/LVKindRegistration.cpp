#include "app/LVKindRegistration.h"

// One include and one call per kind library, in any order: the catalogue orders kinds itself.

void LVRegisterAllKinds()
{
}
