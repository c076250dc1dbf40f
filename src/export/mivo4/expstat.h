// How the picture being exported is getting on, and how the last export
// ended. The sink and the coder note what goes wrong while the answers of
// ExportCellData and of the GP4 driver's close stay what they always were;
// GetLastExportStatus tells a host whether the output is whole.
#pragma once

#include <mivo4/export.h>
#include <mivo4/types.h>

#include <cstdint>

namespace mivo4::exportstatus {

// The largest size a CALS header can state: its sizes are 16-bit.
inline constexpr uint32_t kLargestSide = 65535;

// An export starts: nothing is known about it yet.
void Start();
// The sink was told the picture's size in pixels (the query's answer).
void Sized(double width, double height);
// The header of a picture of width x height pixels is about to be written.
// False when the header cannot state that size: then no picture is written.
bool Begin(uint32_t width, uint32_t height);
// True while the current picture was refused by Begin.
bool Refused();
// Rows coded and handed to the stream.
void Coded(uint32_t rows);
void NoMemory();
void WriteFailed();
// A write to hFile failed; whether memory (a memory block that could not
// grow) or the output itself is to blame is read from the stream.
void StreamFailed(HZEPIO hFile);
// True when the stream is in error.
bool StreamInError(HZEPIO hFile);
// The export is over: outputResult is what the band loop answered, closed
// whether the stream closed cleanly. Sets and returns the status.
int32_t Finish(int32_t outputResult, bool closed);
// An export that ended before any picture could be started.
void EndedEarly(int32_t status);

}  // namespace mivo4::exportstatus
