// Geometry on its own: lays furniture out in a room and reports what overlaps. Links only
// ZentrelLib's geometry area (and the platform area it stands on) — no text, font or crypto
// libraries come with it.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/room_layout
// or with pkg-config:
//   c++ -std=c++20 main.cpp $(pkg-config --cflags --libs zentrel-geometry) -o room_layout

#include <zentrel/geometry/rect.h>
#include <zentrel/geometry/rect_functions.h>

#include <cstdio>

int main() {
  struct Piece {
    const char* name;
    ZTRect frame;
  };
  const ZTRect room = ZTRectMake(0, 0, 500, 400);
  const Piece pieces[] = {
      {"sofa", ZTRectMake(20, 20, 220, 90)},
      {"table", ZTRectMake(200, 150, 120, 80)},
      {"bookcase", ZTRectMake(420, 0, 100, 40)},
      {"armchair", ZTRectMake(180, 90, 60, 70)},
  };
  double used = 0;
  for (const Piece& piece : pieces) {
    used += ZTRectArea(ZTRectIntersection(piece.frame, room));
    if (!ZTRectContainsRect(room, piece.frame)) std::printf("%s sticks out of the room\n", piece.name);
    for (const Piece& other : pieces) {
      if (&other <= &piece || !ZTRectIntersectsRect(piece.frame, other.frame)) continue;
      const ZTRect overlap = ZTRectIntersection(piece.frame, other.frame);
      if (ZTRectArea(overlap) > 0) {
        std::printf("%s and %s overlap by %.0f square units\n", piece.name, other.name, ZTRectArea(overlap));
      }
    }
  }
  std::printf("Furniture covers %.0f%% of the floor\n", 100 * used / ZTRectArea(room));
  return 0;
}
