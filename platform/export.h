#pragma once

// What libzqplatform exports: everything else is hidden.
#if defined(ZQ_BUILDING_PLATFORM) || defined(ZQ_BUILDING_POOL)
#define ZQ_EXPORT __attribute__((visibility("default")))
#else
#define ZQ_EXPORT
#endif
