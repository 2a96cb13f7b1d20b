#pragma once
// LogITCalibration: sensor records and calibration tables from "LogIT Sensors.txt".
//
// The file lies beside the library's own file. Each thread has its own copy of the module
// state (as each client thread of the component has its own module variables); every LogIT
// driver object created on the thread reloads it, and all objects of the thread share it.
//
// File rules (case-sensitive; a line's first word is the text up to its first blank):
// - "%%SENSOR code,name,f2,f3,f4,f5,table[,...]": a sensor record under the key of its code.
//   A code equal to that of the previous kept sensor line (0 before the first) is skipped;
//   one that reappears later fails the load with 457. A code that is not a number fails with
//   13.
// - "%%TABLE name": a table starts (the name as it stands, not trimmed); rows of any table
//   still open are dropped.
// - While a table is open, any other line is a point "value,raw". A raw field beginning "0x"
//   is hexadecimal, otherwise millivolts (2500 mV is full scale, 65520). A line ending in ";"
//   closes the table and adds it (a name used twice fails with 457). Fewer than two fields
//   fail with 9. A table never closed is not added.
// - Other lines are ignored. The file's last line is never handled, so a file ends with an
//   empty line. A missing or empty file leaves both collections empty.
// Keys are compared without regard to case, as the run-time's collections compare them.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vmio {

using SensorRecord = std::vector<std::string>;      // the cleaned fields of a %%SENSOR line
using CalibrationTable = std::vector<std::string>;  // name, then value and raw text per point

// Rebuilds this thread's sensors and tables from the file beside the library, or from the
// installed data folder (share/vmio) when there is none beside it. Errors of the
// file (457, 9, 13) are raised; the collections then hold what was read before the fault.
void LoadSensorTable();
// The same from a given file.
void LoadSensorTable(const std::string& path);
// The loader's work on the file's bytes (code page 1252); no bytes is an empty file.
void LoadSensorTableBytes(std::span<const uint8_t> bytes);

// The sensor record for a type code's decimal text, if any.
const SensorRecord* FindSensor(const std::string& code);

// The engineering value of a raw reading by the named table: below the first point its value,
// above the last the last value, between points interpolated. Points' raws and values are
// first rounded to whole numbers (halves to even). 5 when there is no such table.
double ConvertReading(int32_t Raw, const std::string& TableName);

// Cleans fields in place: tabs to blanks, blanks trimmed at both ends, one pair of enclosing
// double quotes removed, then one trailing ";" removed.
void CleanFields(std::vector<std::string>& fields);

}  // namespace vmio
