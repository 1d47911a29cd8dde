// Must not build: the containers layer sees only itself and the platform, and
// this file, compiled as part of it, reaches up into the persistence layer.
#include "persistence/gbb_Group.h"
