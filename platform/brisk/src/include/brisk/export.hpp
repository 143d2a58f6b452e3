#pragma once

/// Marks what libbrisk exports; everything else in it is hidden.
#define BRISK_API __attribute__((visibility("default")))
