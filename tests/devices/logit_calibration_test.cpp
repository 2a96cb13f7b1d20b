// The sensor file's rules, on small files written here.
#include "devices/logit/logit_calibration.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "support/raised.h"

namespace vmio {
namespace {

using test::Raised;

class SensorFile : public ::testing::Test {
 protected:
  ~SensorFile() override { std::filesystem::remove(path_); }

  // Writes the file as given (line ends included) and loads it.
  void Load(const std::string& text) {
    std::ofstream(path_, std::ios::binary) << text;
    LoadSensorTable(path_);
  }
  std::string LoadFails(const std::string& text) {
    return Raised([&] { Load(text); });
  }
  static std::string Name(const std::string& code) {
    const SensorRecord* s = FindSensor(code);
    return s ? s->at(1) : "(none)";
  }

  std::string path_ = std::filesystem::temp_directory_path() / ("vmio-sensors-" + std::to_string(getpid()) + ".txt");
};

TEST_F(SensorFile, LinesAreSortedByTheirFirstWordAndTheLastLineIsNeverRead) {
  Load(
      "heading line, ignored\n"
      "%%SENSOR 5, \t\"Temperature\" ,degC,0,100,1,Temp;\n"
      "%%SENSOR 5,Other,x,0,1,0,Temp\n"  // the same code right after: the first record stays
      "%%SENSOR 0,Zero,x\n"
      "%%SENSOR 7,Seven\r\n"
      "%%SENSOR  8,Spaced\r"
      "%%SENSORX 9,Not a sensor line\n"
      "%%SENSOR 200,Last line");
  EXPECT_EQ(Name("5"), "Temperature");
  EXPECT_EQ(FindSensor("5")->at(6), "Temp") << "cleaned: quotes, tabs, blanks and one ';' go";
  EXPECT_EQ(FindSensor("5")->size(), 7u);
  EXPECT_EQ(Name("0"), "Zero") << "0 differs from the previous kept code 5";
  EXPECT_EQ(Name("7"), "Seven");
  EXPECT_EQ(Name("8"), "Spaced") << "the key is the cleaned code";
  EXPECT_EQ(Name("9"), "(none)");
  EXPECT_EQ(Name("200"), "(none)") << "the last line";

  Load("%%SENSOR 0,Zero first\n\n");
  EXPECT_EQ(Name("0"), "(none)") << "code 0 equals the code before any sensor line";

  Load("%%SENSOR 5,A\n%%SENSOR 6,B\n%%SENSOR 200,C\n");
  EXPECT_EQ(Name("200"), "(none)") << "a final line end does not make the line before it the last";
}

TEST_F(SensorFile, TablesAreKeptOnlyWhenClosedAndRawFieldsAreHexOrMillivolts) {
  Load(
      "%%TABLE Hex\n"
      "0,0x0000\n"
      "20,0x1000\n"
      "30,0xFFFF;\n"
      "%%TABLE Volts \n"
      "# inside a table every line is a point, this one too\n"
      "1,1000\n"
      "2,1250\n"
      "3,1\n"
      "%%TABLE Restarted\n"
      "5,0x10;  \n"
      "%%TABLE Open\n"
      "1,0x1\n"
      "\n");
  // Hex raws are whole 32-bit numbers; millivolts scale 2500 mV to 65520.
  EXPECT_EQ(ConvertReading(4096, "Hex"), 20);
  EXPECT_EQ(ConvertReading(65535, "Hex"), 30) << "0xFFFF is 65535, not -1";
  EXPECT_EQ(Raised([] { ConvertReading(0, "Volts "); }), "5 Invalid procedure call or argument")
      << "the table started over at %%TABLE Restarted; its rows went with it";
  EXPECT_EQ(ConvertReading(16, "Restarted"), 5) << "a closing ';' after blanks still closes";
  EXPECT_EQ(Raised([] { ConvertReading(0, "Open"); }), "5 Invalid procedure call or argument");

  Load("%%TABLE mV\n7,1\n8,1000\n9,1250;\n\n");
  EXPECT_EQ(ConvertReading(26208, "mV"), 8);
  EXPECT_EQ(ConvertReading(32760, "mV"), 9);
  EXPECT_DOUBLE_EQ(ConvertReading(27, "mV"), 7 + 1.0 / (26208 - 26)) << "1 mV is raw 26.208, used as 26";
  EXPECT_EQ(ConvertReading(0, "MV"), 7) << "names are found without regard to case";
}

TEST_F(SensorFile, ConversionRoundsPointsHalvesToEvenAndInterpolatesBetweenThem) {
  Load(
      "%%TABLE Line\n0,0x0\n100,0xFFF0;\n"
      "%%TABLE Offset\n10,0x3E8\n20,0x7D0;\n"
      "%%TABLE Halves\n22.5 degC,0x0\n23.5,0x64\n12.5,0xC8;\n"
      "%%TABLE Empty\n\n");
  EXPECT_EQ(ConvertReading(32760, "Line"), 50);
  EXPECT_EQ(ConvertReading(70000, "Line"), 100) << "above the table: the last value";
  EXPECT_EQ(ConvertReading(500, "Offset"), 10) << "below the table: the first value";
  EXPECT_EQ(ConvertReading(1500, "Offset"), 15);
  EXPECT_DOUBLE_EQ(ConvertReading(1001, "Offset"), 10.01);
  EXPECT_EQ(ConvertReading(0, "Halves"), 22);
  EXPECT_EQ(ConvertReading(100, "Halves"), 24);
  EXPECT_EQ(ConvertReading(200, "Halves"), 12);
  EXPECT_EQ(ConvertReading(150, "Halves"), 18);
  EXPECT_EQ(Raised([] { ConvertReading(1, "Empty"); }), "5 Invalid procedure call or argument")
      << "never closed by ';'";
}

TEST_F(SensorFile, FaultsInTheFileFailTheLoadAndAMissingFileLoadsNothing) {
  EXPECT_EQ(LoadFails("%%SENSOR 5,A\n%%SENSOR 6,B\n%%SENSOR 5,C\n\n"),
            "457 This key is already associated with an element of this collection");
  EXPECT_EQ(Name("6"), "B") << "what was read before the fault stays";
  EXPECT_EQ(LoadFails("%%TABLE T\n1,0x1;\n%%TABLE t\n2,0x2;\n\n"),
            "457 This key is already associated with an element of this collection");
  EXPECT_EQ(LoadFails("%%TABLE T\n1\n\n"), "9 Subscript out of range");
  EXPECT_EQ(LoadFails("%%TABLE T\n\n0,0;\n\n"), "9 Subscript out of range") << "an empty line has no fields";
  EXPECT_EQ(LoadFails("%%SENSOR five,A\n\n"), "13 Type mismatch");
  EXPECT_EQ(LoadFails("%%SENSOR 5x,A\n\n"), "13 Type mismatch");

  std::filesystem::remove(path_);
  LoadSensorTable(path_);
  EXPECT_EQ(FindSensor("6"), nullptr);
}

TEST_F(SensorFile, EachThreadHasItsOwnTables) {
  Load("%%SENSOR 5,Here\n\n");
  std::string elsewhere;
  std::thread([&] { elsewhere = FindSensor("5") ? "found" : "empty"; }).join();
  EXPECT_EQ(elsewhere, "empty");
  EXPECT_EQ(Name("5"), "Here");
}

}  // namespace
}  // namespace vmio
