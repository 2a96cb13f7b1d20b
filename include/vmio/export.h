#pragma once
/// @file
/// What the shared library exports. The library is built with hidden visibility, so only
/// declarations marked VMIO_API are visible to a host; marking a class exports its virtual
/// table and type information too, which dynamic_cast and exceptions across the library's
/// boundary need.
#if defined(_WIN32)
// The Windows build links the library statically into its component, which exports the
// component's own entry points.
#define VMIO_API
#else
/// Marks a declaration the shared library exports.
#define VMIO_API __attribute__((visibility("default")))
#endif
