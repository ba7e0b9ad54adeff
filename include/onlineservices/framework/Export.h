// Marks the classes and functions that the framework's shared library exports; everything else
// in it is hidden.
#pragma once

#define QEL_OSF_EXPORT __attribute__((visibility("default")))
