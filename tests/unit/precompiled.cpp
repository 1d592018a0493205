// The one source of the library that owns the precompiled header.
