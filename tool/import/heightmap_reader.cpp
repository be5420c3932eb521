#include "tool/import/heightmap_reader.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "tool/import/input_file.h"
#include "tool/import/pgm_decode.h"
#include "tool/import/png_decode.h"

namespace {

bool CheckSize(const std::string& path, uint32_t width, uint32_t height, ImportLog& log) {
    if (width < 2 || height < 2)
        return log.Error(path + ": a height map needs at least 2 x 2 samples, this one has " +
                         std::to_string(width) + " x " + std::to_string(height));
    if (width > HeightMaxSide || height > HeightMaxSide)
        return log.Error(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                         " samples; a height map may have at most " +
                         std::to_string(HeightMaxSide) + " on a side");
    return true;
}

const char* FormatName(RawSampleFormat format) {
    switch (format) {
        case RawSampleFormat::Int16:
            return "int16";
        case RawSampleFormat::UInt16:
            return "uint16";
        case RawSampleFormat::Float32:
            return "float32";
        case RawSampleFormat::Auto:
            break;
    }
    return "auto";
}

}  // namespace

bool IsRawGridPath(const std::string& path) {
    std::string ext = LowerExtension(path);
    return ext == "raw" || ext == "r16" || ext == "r32" || ext == "f32";
}

bool IsHeightMapPath(const std::string& path) {
    std::string ext = LowerExtension(path);
    return ext == "png" || ext == "pgm" || IsRawGridPath(path);
}

GridSpacing HeightGridSpacing(const HeightMapOptions& options) {
    GridSpacing spacing;
    if (options.pixelWidth > 0.0) {
        spacing.rowStep = (options.pixelDepth > 0.0 ? options.pixelDepth : options.pixelWidth) /
                          options.pixelWidth;
        spacing.heightStep = options.heightUnit / options.pixelWidth;
    } else {
        spacing.heightStep = options.heightScale;
    }
    spacing.heightStep *= options.exaggerate;
    return spacing;
}

bool ReadHeightImage(const std::string& path, const std::vector<uint8_t>& bytes, HeightGrid& grid,
                     ImportLog& log) {
    GreyImage image;
    std::string error;
    bool pgm = LooksLikePgm(bytes.data(), bytes.size());
    bool read = pgm ? DecodePgm(bytes.data(), bytes.size(), image, error)
                    : DecodeGreyPng(bytes.data(), bytes.size(), image, error);
    if (!read) return log.Error(path + ": cannot be read as a height map: " + error);
    if (!CheckSize(path, image.width, image.height, log)) return false;
    grid.width = image.width;
    grid.height = image.height;
    grid.values.assign(image.samples.begin(), image.samples.end());
    grid.what = std::to_string(image.bitDepth) + (pgm ? "-bit PGM" : "-bit PNG");
    return true;
}

bool ReadRawGrid(const std::string& path, const std::vector<uint8_t>& bytes,
                 const HeightMapOptions& options, HeightGrid& grid, ImportLog& log) {
    if (options.rawWidth == 0 || options.rawHeight == 0)
        return log.Error(path + ": a raw grid needs its size: --raw-size WIDTHxHEIGHT");
    if (!CheckSize(path, options.rawWidth, options.rawHeight, log)) return false;
    uint64_t samples = uint64_t(options.rawWidth) * options.rawHeight;
    RawSampleFormat format = options.rawFormat;
    if (format == RawSampleFormat::Auto) {
        if (bytes.size() == samples * 2) format = RawSampleFormat::UInt16;
        if (bytes.size() == samples * 4) format = RawSampleFormat::Float32;
    }
    uint64_t width = format == RawSampleFormat::Float32 ? 4 : 2;
    if (format == RawSampleFormat::Auto || bytes.size() != samples * width) {
        std::string want = format == RawSampleFormat::Auto
                               ? std::to_string(samples * 2) + " (16-bit) or " +
                                     std::to_string(samples * 4) + " (float32)"
                               : std::to_string(samples * width) + " (" + FormatName(format) + ")";
        return log.Error(path + ": " + std::to_string(bytes.size()) + " bytes, but a " +
                         std::to_string(options.rawWidth) + " x " +
                         std::to_string(options.rawHeight) + " grid has " + want);
    }
    grid.width = options.rawWidth;
    grid.height = options.rawHeight;
    grid.values.resize(samples);
    for (uint64_t i = 0; i < samples; ++i) {
        const uint8_t* p = bytes.data() + i * width;
        uint32_t bits = uint32_t(p[0]) | uint32_t(p[1]) << 8;
        if (format == RawSampleFormat::Int16) {
            grid.values[i] = double(int16_t(uint16_t(bits)));
        } else if (format == RawSampleFormat::UInt16) {
            grid.values[i] = double(bits);
        } else {
            bits |= uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
            float value;
            std::memcpy(&value, &bits, sizeof value);
            if (!std::isfinite(value)) {
                char text[120];
                std::snprintf(text, sizeof text,
                              ": the sample at column %u, row %u is %g, not a "
                              "height (NaN or infinite)",
                              unsigned(i % grid.width), unsigned(i / grid.width), double(value));
                return log.Error(path + text);
            }
            grid.values[i] = double(value);
        }
    }
    grid.what = std::string(FormatName(format)) + " raw grid";
    return true;
}

void AddHeightGrid(const std::string& path, const HeightGrid& grid, const GridSpacing& spacing,
                   ImportScene& scene) {
    ImportMesh mesh;
    mesh.name = BaseName(path) + ": height map";
    mesh.mapFrame = true;
    mesh.positions.reserve(size_t(grid.width) * grid.height);
    for (uint32_t row = 0; row < grid.height; ++row)
        for (uint32_t column = 0; column < grid.width; ++column)
            mesh.positions.push_back(
                {double(column), grid.values[size_t(row) * grid.width + column] * spacing.heightStep,
                 -double(row) * spacing.rowStep});
    auto at = [&](uint32_t column, uint32_t row) { return row * grid.width + column; };
    mesh.triangles.reserve(size_t(grid.width - 1) * (grid.height - 1) * 6);
    // With x along columns and z = -row, (p00, p10, p11) and (p00, p11, p01) face up.
    for (uint32_t row = 0; row + 1 < grid.height; ++row)
        for (uint32_t column = 0; column + 1 < grid.width; ++column)
            mesh.triangles.insert(mesh.triangles.end(),
                                  {at(column, row), at(column + 1, row), at(column + 1, row + 1),
                                   at(column, row), at(column + 1, row + 1), at(column, row + 1)});
    scene.meshes.push_back(std::move(mesh));
}
