#pragma once

// The same interface under the other name code for the platform includes it by.
#include <android/sw_sync.h>
