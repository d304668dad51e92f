// The project's own version block; ml_stamp_version() in CMake compiles this
// into a module with the four parts of the project's version.
#include "shell/version_stamp.h"

#if !defined(ML_VERSION_MAJOR) || !defined(ML_VERSION_MINOR) || \
    !defined(ML_VERSION_PATCH) || !defined(ML_VERSION_TWEAK)
#error "compile through ml_stamp_version(), which defines the version parts"
#endif

ML_VERSION_STAMP(ML_VERSION_MAJOR + 0, ML_VERSION_MINOR + 0, ML_VERSION_PATCH + 0,
                 ML_VERSION_TWEAK + 0, ML_VERSION_MAJOR + 0, ML_VERSION_MINOR + 0,
                 ML_VERSION_PATCH + 0, ML_VERSION_TWEAK + 0);
