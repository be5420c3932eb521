#include "tool/import/import_run.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "engine/mesh/mesh.h"
#include "engine/mesh/vbf_reader.h"
#include "tool/import/assimp_reader.h"
#include "tool/import/bsp_reader.h"
#include "tool/import/chunk_tree.h"
#include "tool/import/cityjson_reader.h"
#include "tool/import/input_file.h"
#include "tool/import/map_writer.h"
#include "tool/import/mesh_weld.h"
#include "tool/import/texture_import.h"
#include "tool/import/vertex_normals.h"
#include "tool/import/winding.h"

namespace {

bool ReadHeightMap(const std::string& path, const std::string& kind,
                   const std::vector<uint8_t>& bytes, const ImportRequest& request,
                   ImportScene& scene, ImportLog& log) {
    HeightGrid grid;
    bool read = kind == "raw" ? ReadRawGrid(path, bytes, request.heightMap, grid, log)
                              : ReadHeightImage(path, bytes, grid, log);
    if (!read) return false;
    auto [lo, hi] = std::minmax_element(grid.values.begin(), grid.values.end());
    log.Note(path + ": " + std::to_string(grid.width) + " x " + std::to_string(grid.height) + " " +
             grid.what + ", values " + Number(*lo) + " .. " + Number(*hi));
    AddHeightGrid(path, grid, HeightGridSpacing(request.heightMap), scene);
    return true;
}

bool ReadInput(const std::string& path, const ImportRequest& request, ImportScene& scene,
               ImportLog& log) {
    std::vector<uint8_t> bytes;
    std::string error;
    if (!ReadInputFile(path, bytes, error)) return log.Error(path + ": " + error);
    std::string kind = LowerExtension(path), name = path;
    if (kind == "gz") {
        std::vector<uint8_t> packed = std::move(bytes);
        if (!InflateGzip(packed, bytes, error)) return log.Error(path + ": " + error);
        name = path.substr(0, path.size() - 3);
        kind = LowerExtension(name);
    }
    if (kind == "bsp") return ReadBspLevel(path, bytes, scene, log);
    if (kind == "json") return ReadCityJson(path, bytes, scene, log);
    if (IsHeightMapPath(name)) {
        if (IsRawGridPath(name)) kind = "raw";
        return ReadHeightMap(path, kind, bytes, request, scene, log);
    }
    if (name != path) return ReadModelMemory(path, bytes, kind, request.animation, scene, log);
    return ReadModelFile(path, request.animation, scene, log);
}

// Winding and normals, mesh by mesh, once the axes are the map's.
void PrepareMeshes(ImportScene& scene, ImportLog& log) {
    for (ImportMesh& mesh : scene.meshes) {
        std::vector<uint32_t> weld = WeldPositions(mesh.positions);
        bool hadNormals = mesh.normals.size() == mesh.positions.size();
        if (!mesh.mapFrame) {
            WindingReport winding = FixWinding(mesh, weld);
            std::string fixed = DescribeWinding(winding);
            if (!fixed.empty()) log.Warning(mesh.name + ": " + fixed);
            std::string kept = DescribeKeptParts(winding);
            if (!kept.empty()) log.Note(mesh.name + ": " + kept);
        }
        if (!hadNormals && !mesh.mapFrame)
            log.Note(mesh.name + ": no normals in the source; smooth normals made");
        CompleteNormals(mesh, weld);
    }
}

}  // namespace

bool RunImport(const ImportRequest& request, ImportLog& log, ImportSummary& summary) {
    summary = ImportSummary();
    ImportScene scene;
    if (request.inputs.empty()) return log.Error("no input");
    for (const std::string& input : request.inputs)
        if (!ReadInput(input, request, scene, log)) return false;

    if (request.textures) LoadMaterialTextures(scene, log);
    ConvertAxes(scene, request.placement.up);
    PrepareMeshes(scene, log);
    if (!PlaceInMap(scene, request.placement, summary.placement, log)) {
        FreeSceneTextures(scene);
        return false;
    }
    if (request.heightMap.pixelWidth > 0.0)
        log.Note("true scale: one world unit is " +
                 Number(request.heightMap.pixelWidth / summary.placement.scale) + " m, a cell " +
                 Number(request.heightMap.pixelWidth / summary.placement.scale * MapCellUnits) +
                 " m; heights " +
                 (request.heightMap.exaggerate == 1.0
                      ? std::string("as they are")
                      : "exaggerated " + Number(request.heightMap.exaggerate) + " times"));
    if (request.placement.ground || scene.groundPlane)
        AddGroundPlane(scene, summary.placement, request.chunkSize);

    ChunkTreeStats stats;
    CMesh* root = BuildChunkTree(scene, request.chunkSize, stats);
    summary.meshes = stats.meshes;
    summary.triangles = stats.triangles;
    summary.degenerate = stats.degenerate;
    summary.animatedMeshes = stats.animatedMeshes;
    summary.frames = stats.frames;
    summary.animationAsked = request.animation.given;
    if (stats.degenerate)
        log.Note(std::to_string(stats.degenerate) + " degenerate faces (no area) dropped");
    summary.mapPath = (std::filesystem::path(request.mapFolder) / "test.vbf").string();
    if (stats.triangles == 0) {
        log.Error("no faces with an area are left to write");
    } else if (stats.frameTables > VBFMaxFrames) {
        // The map reader holds the frames of all vertex animations in a file to this sum.
        log.Error(std::to_string(stats.animatedMeshes) + " animated meshes of up to " +
                  std::to_string(stats.frames) + " frames come to " +
                  std::to_string(stats.frameTables) + " frames in all, more than a map holds (" +
                  std::to_string(VBFMaxFrames) + "): cap the frames with --frames");
    } else {
        summary.written = WriteMapFolder(request.mapFolder, root, summary.placement.cellsX,
                                         summary.placement.cellsY, SceneTextures(scene), log);
    }
    delete root;
    FreeSceneTextures(scene);
    return summary.written;
}

namespace {

std::string FormatAnimation(const ImportSummary& s) {
    if (s.animatedMeshes == 0)
        return s.animationAsked ? "; nothing animated: the map is static" : "";
    std::string frames = std::to_string(s.frames);
    return "; " + frames + " frames in " + std::to_string(s.animatedMeshes) + " animated mesh" +
           (s.animatedMeshes == 1 ? "" : "es") + ": bake with ANIMATED " + frames +
           " in the shadow script";
}

}  // namespace

std::string FormatSummary(const ImportSummary& s) {
    const Placement& p = s.placement;
    return s.mapPath + ": " + std::to_string(s.meshes) + " meshes, " + std::to_string(s.triangles) +
           " triangles, extent " + Number(p.max.x - p.min.x) + " x " + Number(p.max.y - p.min.y) +
           " x " + Number(p.max.z - p.min.z) + " (x " + Number(p.min.x) + " .. " + Number(p.max.x) +
           ", y " + Number(p.min.y) + " .. " + Number(p.max.y) + ", z " + Number(p.min.z) + " .. " +
           Number(p.max.z) + "), " + std::to_string(p.cellsX) + " x " + std::to_string(p.cellsY) +
           " cells" + FormatAnimation(s);
}
