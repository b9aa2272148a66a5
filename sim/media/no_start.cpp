#include "sim_platform.h"

bool Sim_SetUp()
{
    return true;
}
