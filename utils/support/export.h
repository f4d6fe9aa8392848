#pragma once

// What libzqpool exports: everything else is hidden.
#ifdef ZQ_BUILDING_POOL
#define ZQPOOL_EXPORT __attribute__((visibility("default")))
#else
#define ZQPOOL_EXPORT
#endif
