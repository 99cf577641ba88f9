#pragma once

/// Marks what the shared object exports; everything else stays hidden inside it.
#define UTILITY_API __attribute__((visibility("default")))
