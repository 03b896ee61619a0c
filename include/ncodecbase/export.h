// Export macro: the shared library is built with hidden visibility and only
// what carries NCB_API is part of its interface.
#pragma once

#if defined(NCB_BUILDING_LIBRARY)
#define NCB_API __attribute__((visibility("default")))
#else
#define NCB_API
#endif
