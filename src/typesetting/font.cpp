#include "zentrel/typesetting/font.h"

#include <cairo-ft.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include <pango/pangofc-fontmap.h>

#include <charconv>
#include <cmath>
#include <string>
#include FT_FREETYPE_H

#include "typesetting/internal/font_impl.h"
#include "typesetting/internal/text_layout.h"
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

constexpr std::int64_t kFileReadNoSuchFileError = 260;
constexpr std::int64_t kValidationError = 1024;

std::shared_ptr<ZTFont> failure(ZTError* error, const std::string& message,
                                std::int64_t code = kFileReadNoSuchFileError) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = message;
  ZTSetError(error, ZTError(ZTCocoaErrorDomain, code, std::move(info)));
  return nullptr;
}

// The shortest text that reads back as the number, whatever the locale.
std::string numberText(double value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

}  // namespace

ZTFont::ZTFont(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ZTFont::~ZTFont() = default;

std::shared_ptr<ZTFont> ZTFont::create(std::string_view family, double pointSize, ZTError* error) {
  // Written so that NaN fails too.
  if (!(pointSize >= kMinimumPointSize && pointSize <= kMaximumPointSize)) {
    return failure(error,
                   "A font size must be between " + numberText(kMinimumPointSize) + " and " +
                       numberText(kMaximumPointSize) + " points, not " + numberText(pointSize) + ".",
                   kValidationError);
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
  impl->description = pango_fc_font_description_from_pattern(match, FALSE);
  FcPatternDestroy(match);
  pango_font_description_set_absolute_size(impl->description, pointSize * PANGO_SCALE);

  FT_Face face = FreeTypeLibrary::shared().openFace(impl->path, index);
  if (!face) return failure(error, "The font file \"" + impl->path + "\" could not be read.");
  const double unitsPerEm = face->units_per_EM ? face->units_per_EM : 1000.0;
  const double scale = pointSize / unitsPerEm;
  impl->size = pointSize;
  impl->ascender = face->ascender * scale;
  impl->descender = face->descender * scale;
  impl->lineHeight = face->height * scale;
  impl->boundingBox = ZTRect{{face->bbox.xMin * scale, face->bbox.yMin * scale},
                             {(face->bbox.xMax - face->bbox.xMin) * scale, (face->bbox.yMax - face->bbox.yMin) * scale}};
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

double ZTFont::advanceWidth(std::string_view text) const { return zt::internal::advanceWidth(*this, text); }
