// SPDX-License-Identifier: Apache-2.0
#include "importers/photo_crs.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/numeric.h"
#include "geo/Crs.h"
#include "importers/map_frame.h"

namespace tqtortho::host {
namespace {

/// A photo's pose on the map, or nothing.
std::optional<GroundPose> PoseOnMap(const SurveyPhoto& photo, const std::string& crs,
                                    bool geographic, const MapFrame& map, std::string& error) {
  const Matrix3 rotation = MatrixFromAngles({photo.omega, photo.phi, photo.kappa});
  if (!geographic) {
    const auto toGrid = map.FromPlane(crs, error);
    return toGrid ? PoseThrough({photo.x, photo.y, photo.z}, rotation, *toGrid) : std::nullopt;
  }
  // The place by its own datum; for the turn of the axes any earth is good enough.
  const auto centre = map.FromGeographic(crs, error);
  const auto around = map.FromTopocentric({photo.x, photo.y, photo.z}, error);
  if (!centre || !around) return std::nullopt;
  const auto place = (*centre)({photo.x, photo.y, photo.z});
  auto pose = PoseThrough({0, 0, 0}, rotation, *around);
  if (!place || !pose) return std::nullopt;
  pose->centre = *place;
  return pose;
}

}  // namespace

bool BringOntoMap(Survey& survey, const std::string& mapWkt, std::string& error) {
  if (survey.crs.empty()) return true;
  if (mapWkt.empty()) {
    error =
        "the photos' coordinate system is given, but the DSM names none; write it into the "
        "DSM with gdal_edit.py -a_srs";
    return false;
  }
  const auto info = geo::DescribeCrs(survey.crs);
  if (!info) {
    error = "--crs " + survey.crs.substr(0, 60) + ": is no known coordinate system; give EPSG:n";
    return false;
  }
  const MapFrame map(mapWkt);
  auto blocks = survey.blocks;
  for (auto& block : blocks) {
    for (auto& photo : block.photos) {
      const auto pose = PoseOnMap(photo, survey.crs, info->geographic, map, error);
      if (!pose) {
        if (error.empty()) {
          error =
              "photo " + photo.name + ": its position lies outside " + info->name + "; check --crs";
        }
        return false;
      }
      const PhotoAngles angles = AnglesFromMatrix(pose->cameraToGround);
      photo.x = pose->centre[0];
      photo.y = pose->centre[1];
      photo.z = pose->centre[2];
      photo.omega = angles.omega;
      photo.phi = angles.phi;
      photo.kappa = angles.kappa;
    }
  }
  survey.blocks = std::move(blocks);
  survey.notes.push_back("positions and angles brought from " + info->name +
                         " to the DSM's system; heights as they were");
  survey.crs.clear();
  return true;
}

std::string GuessPhotoCrs(double x, double y, const tqimage::GeoCoefficients& dsm) {
  const std::string& wkt = dsm.GetProjection();
  const auto toDegrees = geo::CrsTransform::Create(wkt, "EPSG:4326");
  if (!toDegrees) return {};
  const int middleCol = dsm.GetWidth() / 2, middleRow = dsm.GetHeight() / 2;
  const auto middle = dsm.Raster2World(middleCol, middleRow);
  const auto there = toDegrees->Apply({middle.x, middle.y, 0});
  if (!there) return {};
  const int zone = std::clamp(FloorToInt((there->x + 180) / 6) + 1, 1, 60);
  std::vector<std::string> candidates{"EPSG:4326", "EPSG:3857"};
  for (const int other : {zone, zone - 1, zone + 1}) {
    const int wrapped = (other + 59) % 60 + 1;
    candidates.push_back("EPSG:" + std::to_string((there->y < 0 ? 32700 : 32600) + wrapped));
  }
  const auto first = dsm.Raster2World(0, 0);
  const double reach =
      std::hypot(first.x - middle.x, first.y - middle.y) + 1000;  // half the diagonal and a little
  for (const std::string& crs : candidates) {
    const auto way = geo::CrsTransform::Create(crs, wkt);
    const auto place = way ? way->Apply({x, y, 0}) : std::nullopt;
    if (place && std::hypot(place->x - middle.x, place->y - middle.y) < reach) return crs;
  }
  return {};
}

}  // namespace tqtortho::host
