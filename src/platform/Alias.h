#pragma once

/// Follows the declaration of an extern "C" function and makes it a second name of the function @p name of the
/// same file. A linker that knows no such thing takes the second name from its list of exports instead.
#define KOLVEX_ALIAS_OF(name) __attribute__((alias(#name)))
