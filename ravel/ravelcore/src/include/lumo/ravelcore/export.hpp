#pragma once

/// Marks what liblumoRavelCore exports; everything else in it is hidden.
#define RAVELCORE_API __attribute__((visibility("default")))
