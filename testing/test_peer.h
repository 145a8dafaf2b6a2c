// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

/// Names private members of an exported class without a word about tests in its header: the
/// arguments of an explicit instantiation are exempt from access checks, and each instantiation
/// defines the function that hands the member out.
template <class Tag, auto kMember>
struct Reveal {
  friend constexpr auto MemberOf(Tag) { return kMember; }
};

struct AdjustOcclusionTag {
  friend constexpr auto MemberOf(AdjustOcclusionTag);
};
template struct Reveal<AdjustOcclusionTag, &tqTORectify::AdjustOcclusion>;
struct CalcCollinearityEquationTag {
  friend constexpr auto MemberOf(CalcCollinearityEquationTag);
};
template struct Reveal<CalcCollinearityEquationTag, &tqTORectify::CalcCollinearityEquation>;
struct CalcGeoParasTag {
  friend constexpr auto MemberOf(CalcGeoParasTag);
};
template struct Reveal<CalcGeoParasTag, &tqTORectify::CalcGeoParas>;
struct CalcInvCollinearityEquationTag {
  friend constexpr auto MemberOf(CalcInvCollinearityEquationTag);
};
template struct Reveal<CalcInvCollinearityEquationTag, &tqTORectify::CalcInvCollinearityEquation>;
struct CheckTallBuildingTag {
  friend constexpr auto MemberOf(CheckTallBuildingTag);
};
template struct Reveal<CheckTallBuildingTag, &tqTORectify::CheckTallBuilding>;
struct CreateRotateMatrixTag {
  friend constexpr auto MemberOf(CreateRotateMatrixTag);
};
template struct Reveal<CreateRotateMatrixTag, &tqTORectify::CreateRotateMatrix>;
struct DoRectifyingPixelsTag {
  friend constexpr auto MemberOf(DoRectifyingPixelsTag);
};
template struct Reveal<DoRectifyingPixelsTag, &tqTORectify::DoRectifyingPixels>;
struct DoRectifyingRectTag {
  friend constexpr auto MemberOf(DoRectifyingRectTag);
};
template struct Reveal<DoRectifyingRectTag, &tqTORectify::DoRectifyingRect>;
struct DoTORectfyTag {
  friend constexpr auto MemberOf(DoTORectfyTag);
};
template struct Reveal<DoTORectfyTag, &tqTORectify::DoTORectfy>;
struct FilterSpecklesTag {
  friend constexpr auto MemberOf(FilterSpecklesTag);
};
template struct Reveal<FilterSpecklesTag, &tqTORectify::FilterSpeckles>;
struct GenOcclusionTag {
  friend constexpr auto MemberOf(GenOcclusionTag);
};
template struct Reveal<GenOcclusionTag, &tqTORectify::GenOcclusion>;
struct GenOcclusionExTag {
  friend constexpr auto MemberOf(GenOcclusionExTag);
};
template struct Reveal<GenOcclusionExTag, &tqTORectify::GenOcclusionEx>;
struct LoadSubDEMTag {
  friend constexpr auto MemberOf(LoadSubDEMTag);
};
template struct Reveal<LoadSubDEMTag, &tqTORectify::LoadSubDEM>;
struct OcculusionJutAdjustTag {
  friend constexpr auto MemberOf(OcculusionJutAdjustTag);
};
template struct Reveal<OcculusionJutAdjustTag, &tqTORectify::OcculusionJutAdjust>;
struct OrthoRectifyImageryTag {
  friend constexpr auto MemberOf(OrthoRectifyImageryTag);
};
template struct Reveal<OrthoRectifyImageryTag, &tqTORectify::OrthoRectifyImagery>;
struct PixelDistortionCorrectTag {
  friend constexpr auto MemberOf(PixelDistortionCorrectTag);
};
template struct Reveal<PixelDistortionCorrectTag, &tqTORectify::PixelDistortionCorrect>;
struct PrepareParamsTag {
  friend constexpr auto MemberOf(PrepareParamsTag);
};
template struct Reveal<PrepareParamsTag, &tqTORectify::PrepareParams>;
struct ReadAndStrechDSMTag {
  friend constexpr auto MemberOf(ReadAndStrechDSMTag);
};
template struct Reveal<ReadAndStrechDSMTag, &tqTORectify::ReadAndStrechDSM>;
struct RefineOcclusionTag {
  friend constexpr auto MemberOf(RefineOcclusionTag);
};
template struct Reveal<RefineOcclusionTag, &tqTORectify::RefineOcclusion>;
struct RefineTORTag {
  friend constexpr auto MemberOf(RefineTORTag);
};
template struct Reveal<RefineTORTag, &tqTORectify::RefineTOR>;
struct ZoomNeighborTag {
  friend constexpr auto MemberOf(ZoomNeighborTag);
};
template struct Reveal<ZoomNeighborTag, &tqTORectify::ZoomNeighbor>;
struct exteriorTag {
  friend constexpr auto MemberOf(exteriorTag);
};
template struct Reveal<exteriorTag, &tqTORectify::exterior_>;
struct interiorTag {
  friend constexpr auto MemberOf(interiorTag);
};
template struct Reveal<interiorTag, &tqTORectify::interior_>;
struct rotationTag {
  friend constexpr auto MemberOf(rotationTag);
};
template struct Reveal<rotationTag, &tqTORectify::rotation_>;

/// The tests' way to the steps that the exported classes keep private. Add a tag
/// and a forwarder per member that a test needs.
struct TestPeer {
  template <class... A>
  static bool OrthoRectifyImagery(tqTORectify& r, A&&... a) {
    return (r.*MemberOf(OrthoRectifyImageryTag{}))(std::forward<A>(a)...);
  }
  /// Gives the object a photo as DoTORectfy does, rotation matrix included.
  static void SetPhoto(tqTORectify& r, const tqorkit::tqIntOri& interior,
                       const tqorkit::tqExtOri& exterior) {
    r.*MemberOf(interiorTag{}) = interior;
    r.*MemberOf(exteriorTag{}) = exterior;
    (r.*MemberOf(CreateRotateMatrixTag{}))();
  }
  static const double* Rotation(const tqTORectify& r) { return r.*MemberOf(rotationTag{}); }
  template <class... A>
  static void CalcCollinearityEquation(const tqTORectify& r, A&&... a) {
    (r.*MemberOf(CalcCollinearityEquationTag{}))(std::forward<A>(a)...);
  }
  template <class... A>
  static void CalcInvCollinearityEquation(const tqTORectify& r, A&&... a) {
    (r.*MemberOf(CalcInvCollinearityEquationTag{}))(std::forward<A>(a)...);
  }
  static tqfd::Point2_T<float> PixelDistortionCorrect(const tqTORectify& r,
                                                      tqfd::Point2_T<float> ideal) {
    return (r.*MemberOf(PixelDistortionCorrectTag{}))(ideal);
  }
  template <class... A>
  static bool DoTORectfy(tqTORectify& r, A&&... a) {
    return (r.*MemberOf(DoTORectfyTag{}))(std::forward<A>(a)...);
  }
  template <class... A>
  static void CalcGeoParas(tqTORectify& r, A&&... a) {
    (r.*MemberOf(CalcGeoParasTag{}))(std::forward<A>(a)...);
  }
  template <class... A>
  static bool DoRectifyingRect(tqTORectify& r, A&&... a) {
    return (r.*MemberOf(DoRectifyingRectTag{}))(std::forward<A>(a)...);
  }
  template <class... A>
  static bool DoRectifyingPixels(tqTORectify& r, A&&... a) {
    return (r.*MemberOf(DoRectifyingPixelsTag{}))(std::forward<A>(a)...);
  }
  static bool RefineTOR(tqTORectify& r, tqorkit::PhotoInfo& ortho, tqorkit::PhotoInfo& weight) {
    return (r.*MemberOf(RefineTORTag{}))(ortho, weight);
  }
  static void RefineOcclusion(tqTORectify& r, std::uint8_t* mask, int width, int height) {
    (r.*MemberOf(RefineOcclusionTag{}))(mask, width, height);
  }
  static bool FilterSpeckles(tqTORectify& r, const std::string& path) {
    return (r.*MemberOf(FilterSpecklesTag{}))(path);
  }
  static bool AdjustOcclusion(tqTORectify& r, const std::string& path) {
    return (r.*MemberOf(AdjustOcclusionTag{}))(path);
  }
  static bool CheckTallBuilding(tqTORectify& r, const tqfd::Rect2_T<double>& rect) {
    return (r.*MemberOf(CheckTallBuildingTag{}))(rect);
  }
  static bool OcculusionJutAdjust(tqTORectify& r, const std::string& path, int a, int b, int c) {
    return (r.*MemberOf(OcculusionJutAdjustTag{}))(path, a, b, c);
  }
  template <class... A>
  static bool GenOcclusion(A&&... a) {
    return MemberOf(GenOcclusionTag{})(std::forward<A>(a)...);
  }
  template <class... A>
  static bool GenOcclusionEx(A&&... a) {
    return MemberOf(GenOcclusionExTag{})(std::forward<A>(a)...);
  }
  template <class... A>
  static bool LoadSubDEM(A&&... a) {
    return MemberOf(LoadSubDEMTag{})(std::forward<A>(a)...);
  }
  template <class... A>
  static bool PrepareParams(tqTORectify& r, A&&... a) {
    return (r.*MemberOf(PrepareParamsTag{}))(std::forward<A>(a)...);
  }
  static bool ReadAndStrechDSM(tqTORectify& r, const char* path, int maxCells,
                               tqorkit::PhotoInfo& dsm) {
    return (r.*MemberOf(ReadAndStrechDSMTag{}))(path, maxCells, dsm);
  }
  static void ZoomNeighbor(const tqorkit::PhotoInfo& in, double factor, tqorkit::PhotoInfo& out) {
    MemberOf(ZoomNeighborTag{})(in, factor, out);
  }
  template <class... A>
  static void RayTracing(tqRayTracer& t, A&&... a) {
    struct Derived : tqRayTracer {
      using tqRayTracer::RayTracing;
    };
    (t.*&Derived::RayTracing)(std::forward<A>(a)...);
  }
};

}  // namespace tqtortho
