// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

/// The tests' way to the steps that the exported classes keep private. Add a forwarder per member
/// that a test needs.
struct TestPeer {
  template <class... A>
  static bool OrthoRectifyImagery(tqTORectify& r, A&&... a) {
    return r.OrthoRectifyImagery(std::forward<A>(a)...);
  }
  /// Gives the object a photo as DoTORectfy does, rotation matrix included.
  static void SetPhoto(tqTORectify& r, const tqorkit::tqIntOri& interior,
                       const tqorkit::tqExtOri& exterior) {
    r.interior_ = interior;
    r.exterior_ = exterior;
    r.CreateRotateMatrix();
  }
  static const double* Rotation(const tqTORectify& r) { return r.rotation_; }
  template <class... A>
  static void CalcCollinearityEquation(const tqTORectify& r, A&&... a) {
    r.CalcCollinearityEquation(std::forward<A>(a)...);
  }
  template <class... A>
  static void CalcInvCollinearityEquation(const tqTORectify& r, A&&... a) {
    r.CalcInvCollinearityEquation(std::forward<A>(a)...);
  }
  static tqfd::Point2_T<float> PixelDistortionCorrect(const tqTORectify& r,
                                                      tqfd::Point2_T<float> ideal) {
    return r.PixelDistortionCorrect(ideal);
  }
  template <class... A>
  static bool DoTORectfy(tqTORectify& r, A&&... a) {
    return r.DoTORectfy(std::forward<A>(a)...);
  }
  template <class... A>
  static void CalcGeoParas(tqTORectify& r, A&&... a) {
    r.CalcGeoParas(std::forward<A>(a)...);
  }
  template <class... A>
  static bool DoRectifyingRect(tqTORectify& r, A&&... a) {
    return r.DoRectifyingRect(std::forward<A>(a)...);
  }
  template <class... A>
  static bool DoRectifyingPixels(tqTORectify& r, A&&... a) {
    return r.DoRectifyingPixels(std::forward<A>(a)...);
  }
  static bool RefineTOR(tqTORectify& r, tqorkit::PhotoInfo& ortho, tqorkit::PhotoInfo& weight) {
    return r.RefineTOR(ortho, weight);
  }
  static void RefineOcclusion(tqTORectify& r, std::uint8_t* mask, int width, int height) {
    r.RefineOcclusion(mask, width, height);
  }
  static bool FilterSpeckles(tqTORectify& r, const std::string& path) {
    return r.FilterSpeckles(path);
  }
  static bool AdjustOcclusion(tqTORectify& r, const std::string& path) {
    return r.AdjustOcclusion(path);
  }
  static bool CheckTallBuilding(tqTORectify& r, const tqfd::Rect2_T<double>& rect) {
    return r.CheckTallBuilding(rect);
  }
  static bool OcculusionJutAdjust(tqTORectify& r, const std::string& path, int a, int b, int c) {
    return r.OcculusionJutAdjust(path, a, b, c);
  }
  template <class... A>
  static bool GenOcclusion(A&&... a) {
    return tqTORectify::GenOcclusion(std::forward<A>(a)...);
  }
  template <class... A>
  static bool GenOcclusionEx(A&&... a) {
    return tqTORectify::GenOcclusionEx(std::forward<A>(a)...);
  }
  template <class... A>
  static bool LoadSubDEM(A&&... a) {
    return tqTORectify::LoadSubDEM(std::forward<A>(a)...);
  }
  template <class... A>
  static bool PrepareParams(tqTORectify& r, A&&... a) {
    return r.PrepareParams(std::forward<A>(a)...);
  }
  static bool ReadAndStrechDSM(tqTORectify& r, const char* path, int maxCells,
                               tqorkit::PhotoInfo& dsm) {
    return r.ReadAndStrechDSM(path, maxCells, dsm);
  }
  static void ZoomNeighbor(const tqorkit::PhotoInfo& in, double factor, tqorkit::PhotoInfo& out) {
    tqTORectify::ZoomNeighbor(in, factor, out);
  }
  template <class... A>
  static void RayTracing(tqRayTracer& t, A&&... a) {
    t.RayTracing(std::forward<A>(a)...);
  }
};

}  // namespace tqtortho
