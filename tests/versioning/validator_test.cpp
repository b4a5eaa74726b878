// SPDX-License-Identifier: MIT
// What the validator is asked, and what becomes of its answer.
#include "versioning/replacements.h"
#include "versioning/versioning_test.h"

namespace kel::test {
namespace {

class ValidatorTest : public VersioningTest {
 protected:
  ValidatorTest() {
    tellAll();
    ReportUids({0, 7, 0, 9});
  }

  std::uint32_t activated(const char* versionsVectorsPath = nullptr, const char* TUIsFilePath = nullptr) {
    std::uint32_t handle = kNoBrelHandle;
    recorder.of([&] { EXPECT_EQ(activate(&handle, versionsVectorsPath, TUIsFilePath), kStatusOk); });
    return handle;
  }

  static const std::string& builtInTable() { return gBuiltIn.at("TUISFILE #101"); }
};

// ---------------------------------------------------------------------------------------------------------------------
// By a client
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ValidatorTest, GetsTheClientsFileAndTheUidsThatAreNotZeroInTheirOrder) {
  const std::uint32_t handle = start();
  ClientFile file;
  file.name = "C:\\versions\\Statistics.bm";
  const char path[] = "vectors";
  EXPECT_EQ(file.validate(handle, path), kStatusOk);
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_EQ(gAsked[0].uids, (std::vector<std::uint32_t>{7, 9}));
  EXPECT_EQ(gAsked[0].fileName, "Statistics.bm");
  EXPECT_EQ(gAsked[0].fileBuffer, file.content.data());
  EXPECT_EQ(gAsked[0].fileLength, file.content.size());
  EXPECT_EQ(gAsked[0].userVersion, &file.userVersion);
  EXPECT_EQ(gAsked[0].versionsVectorsPath, path);
  EXPECT_TRUE(gAsked[0].vectors.empty());
}

TEST_F(ValidatorTest, GetsTheUidsOfTheDayAtEachCall) {
  const std::uint32_t handle = start();
  for (const std::vector<std::uint32_t>& uids :
       {std::vector<std::uint32_t>{1, 2, 3, 4}, {5, 0, 0, 0}, {0, 0, 0, 6}, {8, 8, 0, 8}}) {
    ReportUids(uids);
    EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
  }
  ASSERT_EQ(gAsked.size(), 4u);
  EXPECT_EQ(gAsked[0].uids, (std::vector<std::uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(gAsked[1].uids, (std::vector<std::uint32_t>{5}));
  EXPECT_EQ(gAsked[2].uids, (std::vector<std::uint32_t>{6}));
  EXPECT_EQ(gAsked[3].uids, (std::vector<std::uint32_t>{8, 8, 8}));
}

TEST_F(ValidatorTest, GetsOfAShortAnswerWhatThereIs) {
  const std::uint32_t handle = start();
  AnswerUids(Words({3, 0, 5}));
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
  AnswerUids(Words({3}) + "\1\2");  // of the second word, the lower half
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
  ASSERT_EQ(gAsked.size(), 2u);
  EXPECT_EQ(gAsked[0].uids, (std::vector<std::uint32_t>{3, 5}));
  EXPECT_EQ(gAsked[1].uids, (std::vector<std::uint32_t>{3, 0x0201}));
}

TEST_F(ValidatorTest, JudgesAnEmptyNameAndNullPointersByItself) {
  const std::uint32_t handle = start();
  char name[] = "";
  EXPECT_EQ(BrelValidateVersion(handle, name, nullptr, 4711, nullptr, "vectors"), kStatusOk);
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_EQ(gAsked[0].fileName, "");
  EXPECT_EQ(gAsked[0].fileBuffer, nullptr);
  EXPECT_EQ(gAsked[0].fileLength, 4711u);
  EXPECT_EQ(gAsked[0].userVersion, nullptr);
}

TEST_F(ValidatorTest, IsNotAskedWithoutAPathANameOrUids) {
  const std::uint32_t handle = start();
  EXPECT_EQ(ClientFile().validate(handle, nullptr), 23u);
  ClientFile nameless;
  nameless.name = "/";
  EXPECT_EQ(nameless.validate(handle, "vectors"), 20u);
  ReportUids({0, 0, 0, 0});
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u);
  EXPECT_TRUE(gAsked.empty());
}

TEST_F(ValidatorTest, HasAStatusForEachOfItsCodes) {
  const std::uint32_t handle = start();
  const Status statuses[] = {2, 25, 26, 27, 28, 29, 30, 31, 32, 33, 0};
  for (gVerdict = 0; gVerdict <= 10; ++gVerdict) {
    EXPECT_EQ(ClientFile().validate(handle, "vectors"), statuses[gVerdict]) << gVerdict;
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// By an engine that comes up
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ValidatorTest, GetsTheBuiltInTableAndVectorDuringAnActivation) {
  gBuiltIn["UMVERSIONSVECTOR #103"] = "7\r\n";
  activated();
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_EQ(gAsked[0].uids, (std::vector<std::uint32_t>{7, 9}));
  EXPECT_EQ(gAsked[0].fileName, "KEL_ALLTASKS.csv");
  EXPECT_EQ(gAsked[0].fileBuffer, builtInTable().data());
  EXPECT_EQ(gAsked[0].fileLength, builtInTable().size());
  EXPECT_NE(gAsked[0].userVersion, nullptr);
  EXPECT_EQ(gAsked[0].userVersionValue, 0u);
  EXPECT_EQ(gAsked[0].versionsVectorsPath, nullptr);
  EXPECT_EQ(gAsked[0].vectors, std::vector<std::string>{"7\r\n"});
  EXPECT_EQ(gAsked[0].vectorBuffers, std::vector<const char*>{gBuiltIn["UMVERSIONSVECTOR #103"].data()});
}

TEST_F(ValidatorTest, GetsACopyOfAPathAndThenNoVectors) {
  gBuiltIn["UMVERSIONSVECTOR #103"] = "7\r\n";
  const char path[] = "vectors";
  activated(path);
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_NE(gAsked[0].versionsVectorsPath, path);
  EXPECT_EQ(gAsked[0].pathText, "vectors");
  EXPECT_TRUE(gAsked[0].vectors.empty());
}

TEST_F(ValidatorTest, GetsAnExternalTableByteForByteUnderItsNameWithoutPath) {
  const std::string table = "TASK_ID_VERSIONS_GET_UIDS,  0, 8, KEL_UPPER_DSPS, 1, VAL, 98560, 0x18100\r\n\r\nrest";
  std::filesystem::create_directory(folder.path() / "tables");
  folder.write("tables/mine.csv", table);
  activated(nullptr, "tables/mine.csv");
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_EQ(gAsked[0].fileName, "mine.csv");
  EXPECT_EQ(std::string(static_cast<const char*>(gAsked[0].fileBuffer), gAsked[0].fileLength), table);
}

TEST_F(ValidatorTest, GetsTheBuiltInVectorsBesideAClientsPathAsWell) {
  gBuiltIn["UMVERSIONSVECTOR #103"] = "7\r\n";
  const std::uint32_t handle = activated();
  EXPECT_EQ(ClientFile().validate(handle, "of the client"), kStatusOk);
  EXPECT_EQ(ClientFile().validate(handle, nullptr), kStatusOk);
  ASSERT_EQ(gAsked.size(), 3u);
  EXPECT_EQ(gAsked[1].pathText, "of the client");
  EXPECT_EQ(gAsked[1].vectors, std::vector<std::string>{"7\r\n"});
  EXPECT_EQ(gAsked[2].versionsVectorsPath, nullptr);
  EXPECT_EQ(gAsked[2].vectors, std::vector<std::string>{"7\r\n"});
}

TEST_F(ValidatorTest, IsNotToldOfTheActivationsPathByAClientThatGivesNone) {
  const std::uint32_t handle = activated("of the activation");
  EXPECT_EQ(ClientFile().validate(handle, nullptr), kStatusOk);
  ASSERT_EQ(gAsked.size(), 2u);
  EXPECT_EQ(gAsked[0].pathText, "of the activation");
  EXPECT_EQ(gAsked[1].versionsVectorsPath, nullptr);
}

TEST_F(ValidatorTest, KeepsAnEngineFromComingUpWhoseTableDoesNotPass) {
  gVerdict = 1;
  const Transcript said = recorder.of([&] {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(activate(&handle, "vectors"), kStatusFailed);
  });
  EXPECT_EQ(said,
            connected() + fetched() + builtInTableRetrieved() +
                Transcript()
                    .error("VersionValidateKelAllTasksFile", "BrelValidateVersion() of KEL_ALLTASKS.csv failed. \n")
                    .error("InitVersioningSupport", "Version validation of KELALLTASKS.csv file failed! \n") +
                tornDown() + removed());
}

// ---------------------------------------------------------------------------------------------------------------------
// The built-in vectors
// ---------------------------------------------------------------------------------------------------------------------

struct Side {
  const char* resource;
  const char* name;
};

constexpr Side kSides[] = {{"UMVERSIONSVECTOR #103", "UserMode Driver"},
                           {"KMVERSIONSVECTOR #104", "KernelMode Driver"},
                           {"FWVERSIONSVECTOR #105", "Firmware"},
                           {"UDVERSIONSVECTOR #106", "UpperDSPS"}};

/// The bits of the parameter are the sides that have a vector.
class VectorsTest : public ValidatorTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(VectorsTest, StandInTheirOrderWithoutGapsAndEachMissingOneIsTold) {
  std::vector<std::string> present, missing;
  for (unsigned i = 0; i < 4; ++i) {
    if ((GetParam() >> i & 1) != 0) {
      present.push_back(std::string(i + 1, 'v'));
      gBuiltIn[kSides[i].resource] = present.back();
    } else {
      missing.push_back(kSides[i].name);
    }
  }
  const Transcript said = recorder.of([&] {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(activate(&handle), kStatusOk);
  });
  EXPECT_EQ(said,
            connected() + fetched() + vectorsMissing(missing) + builtInTableRetrieved() + VersioningTest::activated());
  ASSERT_EQ(gAsked.size(), 1u);
  EXPECT_EQ(gAsked[0].vectors, present);
}

INSTANTIATE_TEST_SUITE_P(Sides, VectorsTest, ::testing::Range(0u, 16u));

}  // namespace
}  // namespace kel::test
