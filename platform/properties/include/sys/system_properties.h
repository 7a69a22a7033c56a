#pragma once

// Host stand-in for the bionic header that <cutils/properties.h> includes. Only the size
// limits are needed on a host: the property functions themselves come from
// libzorcam_properties (platform/properties).

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
