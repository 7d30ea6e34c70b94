#pragma once

#include "drivers/ppdset.h"

// The catalogue never frees the PPD records it reads (they live as long as the process);
// tests free them so that the leak checker sees only real leaks.
inline void freeCatalogue(PPDSet &set)
{
    qDeleteAll(set.ppds);
    set.ppds.clear();
}
