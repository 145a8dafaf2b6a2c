// SPDX-License-Identifier: Apache-2.0
#include "importers/project_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/import_scene.h"
#include "testing/town_data.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tqtortho::testing::ImportFolder;

const char* const kColmapImages = "1 0 1 0 0 0 0 100 1 a.jpg\n\n";
const char* const kTable = "name,x,y,z,omega,phi,kappa\na.jpg,0,0,100,0,0,0\n";

// One photo, and what each program writes about it.
struct Places : ImportFolder {
  Places() {
    WriteDsm("EPSG:32633", 0, 0);
    WritePhoto("a.jpg", 400, 300);
    dir.Write("colmap/cameras.txt", "# of a model\n1 SIMPLE_PINHOLE 400 300 500 200 150\n");
    dir.Write("colmap/images.txt", std::string("# IMAGE_ID, QW, QX, QY, QZ, TX, TY, TZ, CAMERA_ID, "
                                               "NAME\n") +
                                       kColmapImages);
    dir.Write("lists/cameras.txt", "1\n1\ncam\n400 300 500 400 300 200 150 0 0 0 0 0 0 0 0 0\n");
    dir.Write("lists/photos.txt", "1\n1\n" + File("images") + "\na.jpg 0 0 100 0 0 0 1\n");
    dir.Write("table/poses.csv", kTable);
    dir.Write("table/camera.yaml",
              "cam:\n  type: pinhole\n  im_size: [400, 300]\n  focal_len: 1.25\n");
    dir.Write("empty/notes.txt", "hello");
  }
};

TEST(ProjectImportTest, WhatLiesAtAPathShowsByItsContent) {
  const Places places;
  struct Case {
    const char* path;
    const char* source;
  };
  for (const Case& c : {Case{"colmap", "COLMAP model (text)"},
                        {"colmap/images.txt", "COLMAP model"},
                        {"lists", ""},
                        {"lists/photos.txt", ""},
                        {"table", "table of poses"},
                        {"table/poses.csv", "table of poses"}}) {
    SCOPED_TRACE(c.path);
    ImportRequest request = places.Request(c.path);
    request.crs = "EPSG:32633";
    request.photoDir = *c.source == '\0' ? "" : places.File("images");
    std::string error;
    const auto survey = ImportProject(request, error);
    ASSERT_TRUE(survey) << error;
    EXPECT_THAT(survey->source, HasSubstr(c.source));
    EXPECT_EQ(survey->blocks.at(0).photos.size(), 1U);
  }
}

TEST(ProjectImportTest, NothingSeveralThingsAndExcessAreNamed) {
  const Places places;
  const auto fails = [](const ImportRequest& request, const auto& words) {
    std::string error;
    EXPECT_FALSE(ImportProject(request, error));
    EXPECT_THAT(error, words);
  };
  fails(places.Request("nowhere"), HasSubstr("nowhere: is not there"));
  fails(places.Request("empty"),
        AllOf(HasSubstr("looked for cameras.txt with photos.txt, OpenDroneMap"), HasSubstr("Pix4D"),
              HasSubstr("COLMAP"), HasSubstr("Metashape"), HasSubstr("table of poses")));
  fails(places.Request("empty/notes.txt"), HasSubstr("holds no project that is known"));
  places.dir.Write("both/sparse/cameras.txt", "1 PINHOLE 9 9 1 1 1 1\n");
  places.dir.Write("both/sparse/images.txt", kColmapImages);
  places.dir.Write("both/reconstruction.json", "[{\"cameras\": {}}]");
  fails(places.Request("both"),
        HasSubstr("holds an OpenSfM reconstruction and a COLMAP model; say which"));
  places.dir.Write("both/poses.csv", kTable);  // counts only alone
  fails(places.Request("both"), HasSubstr("holds an OpenSfM reconstruction and a COLMAP model;"));
  ImportRequest request = places.Request("lists");
  request.offset = {1, 0, 0};
  fails(request, HasSubstr("is a camera and photo list, which has no use for --offset"));
  request = places.Request("colmap");
  request.cameraFile = "x";
  fails(request, HasSubstr("is a COLMAP model, which has no use for --camera-file"));
  request.photoDir = places.File("nowhere");
  fails(request, HasSubstr("nowhere: is no folder"));
  places.dir.Write("lists/photos.txt", "1\n1\nx\na.jpg 0 0\n");
  fails(places.Request("lists"), HasSubstr("photos.txt:4: a photo line has eight fields"));
}

// The same photos through the project, and through the tables that were made of it.
TEST(ProjectImportTest, FieldSurveyIsFoundInEachOfItsForms) {
  const std::string data = tqtortho::testing::SharedData();
  if (data.empty()) GTEST_SKIP() << "no measurement data (TQTORTHO_SHARED_DATA)";
  ImportRequest request;
  request.path = data + "/odm-field";
  std::string error;
  const auto project = ImportProject(request, error);
  ASSERT_TRUE(project) << error;
  EXPECT_THAT(project->source, StartsWith("OpenDroneMap project"));
  request.path += "/params/odm_xyz_opk.csv";
  request.dsmPath = data + "/odm-field/odm_dem/dsm.tif";
  request.photoDir = data + "/odm-field/images";
  const auto table = ImportProject(request, error);
  ASSERT_TRUE(table) << error;
  EXPECT_THAT(table->source, StartsWith("table of poses"));
  EXPECT_EQ(table->blocks.at(0).photos.size(), project->blocks.at(0).photos.size());
  // A reconstruction taken out of its project has the project's poses no more; a DSM on another
  // map moves the project's.
  const ImportFolder other;
  other.WriteDsm("EPSG:32650", 900000, 2731000);
  request = {};
  request.path = data + "/odm-field";
  request.dsmPath = other.File("dsm.tif");
  const auto moved = ImportProject(request, error);
  ASSERT_TRUE(moved) << error;
  const auto toMap = geo::CrsTransform::Create("EPSG:32651", "EPSG:32650");
  const SurveyPhoto &from = project->blocks[0].photos[0], &to = moved->blocks.at(0).photos.at(0);
  const auto expected = toMap->Apply({from.x, from.y, 0});
  ASSERT_TRUE(expected);
  EXPECT_NEAR(std::hypot(to.x - expected->x, to.y - expected->y, to.z - from.z), 0, 1e-6);
}

}  // namespace
}  // namespace tqtortho::host
