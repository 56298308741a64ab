// Where a command writes to and in which format: chosen by name, and tried before anything is connected.
#pragma once

#include "base/outcome.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace tool {

// What is written; a bit each, so that a table can name several.
enum FileFormat : unsigned {
    kMp4 = 1,
    kMkv = 2,
    kTs = 4,
    kH264 = 8,
    kAac = 16,
    kWav = 32,
    kMjpeg = 64,
    kPcap = 128,
    kRtpdump = 256,
    kPng = 512,
    kJpg = 1024
};
constexpr unsigned kContainers = kMp4 | kMkv | kTs; // hold several streams, and can be split
constexpr unsigned kRecordings = kContainers | kH264 | kAac | kWav | kMjpeg | kPcap | kRtpdump;
constexpr unsigned kPictures = kPng | kJpg;

constexpr auto kUsualLatency = std::chrono::milliseconds(200);

struct OutputSettings {
    std::string file;                   // "-": standard output; empty: none
    std::string format;                 // empty: by the file's extension
    std::chrono::milliseconds split{0}; // 0: one file
};

struct OutputFile {
    FileFormat format = kMp4;
    std::string name;                   // as it was given, for messages
    std::string path;                   // empty: standard output; of split files a pattern with "%03d"
    FILE *standardOutput = nullptr;     // the real one
    std::chrono::milliseconds split{0}; // 0: one file
    std::chrono::milliseconds latency = kUsualLatency; // what packets over UDP are waited for to be put in order
};

// Reads the settings and makes sure that the file can be written; the tools that the format needs must be built in.
Outcome ChooseOutput(const OutputSettings &settings, unsigned allowed, FILE *standardOutput, OutputFile &file);

std::string FormatNames(unsigned formats); // "mp4, mkv, ..."

} // namespace tool
