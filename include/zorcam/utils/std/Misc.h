#pragma once

// Miscellaneous camera utilities in NSCam::Utils.

#include <zorcam/utils/std/Log.h>

namespace NSCam {
namespace Utils {

// ---- Directories and plain files


// ---- Dump through the camera-dump service


// ---- Thread priority


// ---- Lock helpers


// ---- Fault reports and call stacks


}  // namespace Utils
}  // namespace NSCam
