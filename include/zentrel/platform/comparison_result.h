#pragma once
// The result of comparing two values: the first orders before, the same as, or after the second.
// Comparators throughout the library may answer it (the sorted collections also accept integers
// and C++20 orderings).
enum class ZTComparisonResult { OrderedAscending = -1, OrderedSame = 0, OrderedDescending = 1 };
