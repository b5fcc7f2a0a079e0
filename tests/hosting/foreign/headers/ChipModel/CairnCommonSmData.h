#pragma once

#include <agent/Chips.h>
