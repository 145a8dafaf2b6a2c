// SPDX-License-Identifier: Apache-2.0
//
// Occlusion masks by projecting the surface model into a photo: members over the visibility kernel.
#include "camera/photo_camera.h"
#include "tqtortho/tqTORectify.h"
#include "visibility/photo_visibility.h"

namespace tqtortho {

bool tqTORectify::LoadSubDEM(const char* dsmPath, const tqfd::Rect2_T<double>& rect,
                             const tqfd::Point3_T<double>& camera, tqorkit::PhotoInfo& surface,
                             tqimage::GeoCoefficients& coefficients) {
  return dsmPath != nullptr && ReadSurfacePart(dsmPath, rect, camera, surface, coefficients);
}

bool tqTORectify::GenOcclusion(const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior,
                               const char* dsmPath, const tqfd::Rect2_T<double>& rect, double gsd,
                               std::uint8_t outsideValue, std::vector<std::uint8_t>& mask,
                               int& cols, int& rows) {
  VisibilityOptions options;
  options.outside = outsideValue;
  return dsmPath != nullptr && JudgeVisibility(CameraOf(interior, exterior), dsmPath, rect, gsd,
                                               options, mask, cols, rows);
}

bool tqTORectify::GenOcclusionEx(const tqorkit::tqIntOri& interior,
                                 const tqorkit::tqExtOri& exterior, const char* dsmPath,
                                 const tqfd::Rect2_T<double>& rect, double gsd,
                                 std::uint8_t outsideValue, const char* outPath) {
  VisibilityOptions options;
  options.outside = outsideValue;
  return dsmPath != nullptr && outPath != nullptr &&
         WriteVisibility(CameraOf(interior, exterior), dsmPath, rect, gsd, options, outPath);
}

}  // namespace tqtortho
