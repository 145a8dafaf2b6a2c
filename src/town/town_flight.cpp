// SPDX-License-Identifier: Apache-2.0
#include "town/town_flight.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/numeric.h"
#include "survey/number_text.h"
#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

constexpr int kSmallestFrame = 48, kLargestFrame = 12000;  ///< pixels
constexpr double kPi = 3.14159265358979323846;

/// Six decimals, as the parameter file of a job carries them.
double Rounded(double value) { return ReadDouble(Fixed(value, 6)).value_or(value); }
/// Seven digits, likewise.
double RoundedDigits(double value) { return ReadDouble(Scientific(value, 6)).value_or(value); }

/// Lens of about one per cent of the frame's half diagonal, with every coefficient of its model
/// used.
void SetLens(SurveyCamera& camera) {
  double* k = camera.coefficients;
  if (camera.model == 1) {  // pixels
    const double r = 0.5 * std::hypot(camera.width, camera.height), r2 = r * r;
    const double values[] = {0.014 / r2, -0.005 / (r2 * r2), 0.001 / (r2 * r2 * r2),
                             0.0008 / r, -0.0006 / r,        2e-4,
                             -1.5e-4};
    std::copy(std::begin(values), std::end(values), k);
  } else if (camera.model == 3) {  // normalised coordinates
    const double values[] = {-0.06, 0.02, -0.004, 4e-4, -3e-4};
    std::copy(std::begin(values), std::end(values), k);
  }
  for (int i = 0; i < 8; ++i) k[i] = RoundedDigits(k[i]);
}

int EvenPixels(double metres, double gsd) { return 2 * TruncToInt(0.5 * metres / gsd + 0.5); }

}  // namespace

bool PlanFlight(const SampleOptions& options, double groundM, double townTop, Survey& survey,
                std::string& error) {
  const int count = options.photoCount;
  const int strips = std::max(1, TruncToInt(std::sqrt(static_cast<double>(count)) + 0.5));
  const double acrossStep = options.sizeM / strips;
  const double alongStep = options.sizeM / (static_cast<double>(count) / strips);
  const double widthM = std::min(3 * acrossStep, 1.15 * options.sizeM);
  const double heightM = std::max(0.75 * widthM, 1.3 * alongStep);
  const double flyingM = std::max(1.2 * std::max(widthM, heightM), 2 * townTop + 20);

  SurveyCamera camera;
  camera.id = 1;
  camera.name = "Sample camera";
  const int width = EvenPixels(widthM, options.photoGsdM);
  const int height = EvenPixels(heightM, options.photoGsdM);
  if (std::min(width, height) < kSmallestFrame || std::max(width, height) > kLargestFrame) {
    error = "photos of " + std::to_string(width) + " x " + std::to_string(height) +
            " pixels: choose another photo resolution or number of photos";
    return false;
  }
  camera.width = width;
  camera.height = height;
  camera.focalLength = Rounded(flyingM / options.photoGsdM);
  camera.sensorWidth = width;
  camera.sensorHeight = height;
  camera.principalX = Rounded(0.5 * width + 0.006 * width);
  camera.principalY = Rounded(0.5 * height - 0.005 * width);
  camera.model = options.lensModel;
  SetLens(camera);
  survey.cameras = {camera};

  TownRandom random(options.seed ^ 0xF117E5U);
  const double tilt = options.attitudeDeg * kPi / 180;
  SurveyBlock block;
  block.path = "photos";
  for (int strip = 0; strip < strips; ++strip) {
    const int inStrip = count / strips + (strip < count % strips ? 1 : 0);
    const double step = options.sizeM / inStrip;
    for (int i = 0; i < inStrip; ++i) {
      const bool northward = strip % 2 == 0;
      const double along = ((northward ? i : inStrip - 1 - i) + 0.5) * step;
      char name[32];
      std::snprintf(name, sizeof name, "S%02d_%03d.png", strip + 1, i + 1);
      SurveyPhoto photo;
      photo.name = name;
      photo.x = Rounded(kTownEast + (strip + 0.5 + random.Range(-0.05, 0.05)) * acrossStep);
      photo.y = Rounded(kTownNorth + along + random.Range(-0.05, 0.05) * step);
      photo.z = Rounded(groundM + flyingM * random.Range(0.985, 1.015));
      photo.omega = Rounded(random.Range(-tilt, tilt));
      photo.phi = Rounded(random.Range(-tilt, tilt));
      photo.kappa = Rounded((northward ? 0 : kPi) + random.Range(-0.03, 0.03));
      photo.cameraId = camera.id;
      block.photos.push_back(photo);
    }
  }
  survey.blocks = {block};
  return true;
}

}  // namespace tqtortho::host
