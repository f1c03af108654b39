#include "zentrel/typesetting/font.h"

#include <cairo-ft.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>

#include <algorithm>
#include <cmath>
#include <string>
#include FT_FREETYPE_H

#include "typesetting/internal/font_impl.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

namespace {

// FreeType's library object, which is not thread-safe for creating and destroying faces: every
// such call goes through its lock. Never destroyed, as cairo may release a face at any time up to
// the end of the process.
class FreeTypeLibrary {
 public:
  static FreeTypeLibrary& shared() {
    static FreeTypeLibrary* const library = new FreeTypeLibrary;
    return *library;
  }

  // A face of the font file, or nullptr when FreeType cannot read it.
  FT_Face openFace(const std::string& path, int index) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    FT_Face face = nullptr;
    if (!library_ || FT_New_Face(library_, path.c_str(), index, &face) != 0) return nullptr;
    return face;
  }

  void closeFace(FT_Face face) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    FT_Done_Face(face);
  }

 private:
  FreeTypeLibrary() {
    if (FT_Init_FreeType(&library_) != 0) library_ = nullptr;
  }

  ZTMutex mutex_;
  FT_Library library_ ZT_GUARDED_BY(mutex_) = nullptr;
};

const cairo_user_data_key_t kFaceKey{};

void releaseFreeTypeFace(void* face) { FreeTypeLibrary::shared().closeFace(static_cast<FT_Face>(face)); }

std::shared_ptr<ZTFont> failure(ZTError* error, const std::string& message) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = message;
  ZTSetError(error, ZTError(ZTCocoaErrorDomain, 260, std::move(info)));
  return nullptr;
}

}  // namespace

ZTFont::ZTFont(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ZTFont::~ZTFont() = default;

std::shared_ptr<ZTFont> ZTFont::create(std::string_view family, double pointSize, ZTError* error) {
  if (!(pointSize > 0) || !std::isfinite(pointSize)) {
    return failure(error, "A font size must be a positive number of points, not " + std::to_string(pointSize) + ".");
  }
  static const bool fontconfigReady = FcInit() == FcTrue;
  if (!fontconfigReady) return failure(error, "fontconfig could not be initialised.");

  const std::string name(family);
  FcPattern* pattern = FcNameParse(reinterpret_cast<const FcChar8*>(name.c_str()));
  if (!pattern) return failure(error, "\"" + name + "\" is not a font name fontconfig understands.");
  FcPatternAddDouble(pattern, FC_SIZE, pointSize);
  FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
  FcDefaultSubstitute(pattern);
  FcResult result = FcResultNoMatch;
  FcPattern* match = FcFontMatch(nullptr, pattern, &result);
  FcPatternDestroy(pattern);
  if (!match) return failure(error, "fontconfig found no font for \"" + name + "\"; is any font installed?");

  auto impl = std::make_unique<Impl>();
  FcChar8* file = nullptr;
  FcChar8* matchedFamily = nullptr;
  int index = 0;
  if (FcPatternGetString(match, FC_FILE, 0, &file) != FcResultMatch) {
    FcPatternDestroy(match);
    return failure(error, "fontconfig matched \"" + name + "\" to a font that has no file.");
  }
  impl->path = reinterpret_cast<const char*>(file);
  if (FcPatternGetString(match, FC_FAMILY, 0, &matchedFamily) == FcResultMatch) {
    impl->family = reinterpret_cast<const char*>(matchedFamily);
  }
  FcPatternGetInteger(match, FC_INDEX, 0, &index);
  FcPatternDestroy(match);

  FT_Face face = FreeTypeLibrary::shared().openFace(impl->path, index);
  if (!face) return failure(error, "The font file \"" + impl->path + "\" could not be read.");
  const double unitsPerEm = face->units_per_EM ? face->units_per_EM : 1000.0;
  impl->size = pointSize;
  impl->scale = pointSize / unitsPerEm;
  impl->ascender = face->ascender * impl->scale;
  impl->descender = face->descender * impl->scale;
  impl->lineHeight = face->height * impl->scale;
  impl->boundingBox =
      ZTRect{{face->bbox.xMin * impl->scale, face->bbox.yMin * impl->scale},
             {(face->bbox.xMax - face->bbox.xMin) * impl->scale, (face->bbox.yMax - face->bbox.yMin) * impl->scale}};
  if (impl->family.empty() && face->family_name) impl->family = face->family_name;

  // cairo keeps the FreeType face until its own face goes: the face is released with it.
  impl->cairoFace = cairo_ft_font_face_create_for_ft_face(face, 0);
  if (cairo_font_face_status(impl->cairoFace) != CAIRO_STATUS_SUCCESS ||
      cairo_font_face_set_user_data(impl->cairoFace, &kFaceKey, face, releaseFreeTypeFace) != CAIRO_STATUS_SUCCESS) {
    cairo_font_face_destroy(impl->cairoFace);
    impl->cairoFace = nullptr;
    releaseFreeTypeFace(face);
    return failure(error, "cairo could not use the font file \"" + impl->path + "\".");
  }

  hb_blob_t* blob = hb_blob_create_from_file(impl->path.c_str());
  hb_face_t* hbFace = hb_face_create(blob, static_cast<unsigned>(index));
  hb_blob_destroy(blob);
  impl->hbFont = hb_font_create(hbFace);
  hb_face_destroy(hbFace);
  if (hb_face_get_glyph_count(hb_font_get_face(impl->hbFont)) == 0) {
    return failure(error, "HarfBuzz could not read the font file \"" + impl->path + "\".");
  }
  hb_font_set_scale(impl->hbFont, static_cast<int>(unitsPerEm), static_cast<int>(unitsPerEm));
  hb_font_make_immutable(impl->hbFont);
  return std::shared_ptr<ZTFont>(new ZTFont(std::move(impl)));
}

std::shared_ptr<ZTFont> ZTFont::systemFontOfSize(double pointSize, ZTError* error) {
  return create("sans-serif", pointSize, error);
}

const std::string& ZTFont::familyName() const { return impl_->family; }
const std::string& ZTFont::filePath() const { return impl_->path; }
double ZTFont::pointSize() const { return impl_->size; }
double ZTFont::ascender() const { return impl_->ascender; }
double ZTFont::descender() const { return impl_->descender; }
double ZTFont::lineHeight() const { return impl_->lineHeight; }
ZTRect ZTFont::boundingBox() const { return impl_->boundingBox; }
cairo_font_face_t* ZTFont::cairoFontFace() const { return impl_->cairoFace; }

double ZTFont::advanceWidth(std::string_view text) const { return zt::internal::shape(*this, text, nullptr); }

namespace zt::internal {

double shape(const ZTFont& font, std::string_view text, std::vector<ShapedGlyph>* glyphs) {
  if (text.empty()) return 0;
  const auto& impl = ZTFontAccess::impl(font);
  hb_buffer_t* buffer = hb_buffer_create();
  // HarfBuzz takes int lengths: a longer line is measured in pieces.
  double width = 0;
  std::size_t offset = 0;
  while (offset < text.size()) {
    const std::size_t piece = std::min<std::size_t>(text.size() - offset, 1u << 30);
    hb_buffer_clear_contents(buffer);
    hb_buffer_add_utf8(buffer, text.data() + offset, static_cast<int>(piece), 0, static_cast<int>(piece));
    hb_buffer_guess_segment_properties(buffer);
    hb_shape(impl.hbFont, buffer, nullptr, 0);
    unsigned int count = 0;
    const hb_glyph_info_t* info = hb_buffer_get_glyph_infos(buffer, &count);
    const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer, &count);
    if (glyphs) glyphs->reserve(glyphs->size() + count);
    hb_position_t pen = 0;
    hb_position_t penY = 0;
    for (unsigned int i = 0; i < count; ++i) {
      if (glyphs) {
        glyphs->push_back({info[i].codepoint, width + (pen + positions[i].x_offset) * impl.scale,
                           -(penY + positions[i].y_offset) * impl.scale});
      }
      pen += positions[i].x_advance;
      penY += positions[i].y_advance;
    }
    width += pen * impl.scale;
    offset += piece;
  }
  hb_buffer_destroy(buffer);
  return width;
}

}  // namespace zt::internal
