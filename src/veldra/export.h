#pragma once

/// Marks a class or function that users of the shared library may call.
///
/// The library is compiled with hidden visibility: what does not carry this mark cannot be reached
/// from outside it. A static library does not care.
#define VELDRA_EXPORT __attribute__((visibility("default")))
