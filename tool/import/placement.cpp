#include "tool/import/placement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

void ConvertAxes(ImportScene& scene, UpAxis up) {
    for (ImportMesh& mesh : scene.meshes) {
        if (mesh.mapFrame) continue;
        UpAxis meshUp = mesh.fileUp.value_or(up);
        auto convert = [meshUp](DVec3& v) {
            v = meshUp == UpAxis::Y ? DVec3{v.x, v.y, -v.z} : DVec3{v.x, v.z, v.y};
        };
        for (DVec3& p : mesh.positions) convert(p);
        for (DVec3& n : mesh.normals) convert(n);
        for (DVec3& p : mesh.framePositions) convert(p);
        for (DVec3& n : mesh.frameNormals) convert(n);
        // A mirror turns every face inside out; swapping two corners turns it back.
        for (size_t f = 0; f + 2 < mesh.triangles.size(); f += 3)
            std::swap(mesh.triangles[f + 1], mesh.triangles[f + 2]);
    }
}

namespace {

int32_t CellsFor(double units) {
    // A model fitted to N cells may come out a hair over N * 32 units; that is still N cells.
    double cells = std::ceil(units / MapCellUnits - 1e-6);
    return int32_t(std::clamp(cells, 1.0, 1e9));
}

}  // namespace

bool PlaceInMap(ImportScene& scene, const PlacementOptions& options, Placement& placement,
                ImportLog& log) {
    // An animated mesh is placed by all its frames, so that none of them leaves the map.
    DVec3 lo = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (const ImportMesh& mesh : scene.meshes)
        for (const auto* points : {&mesh.positions, &mesh.framePositions})
            for (const DVec3& p : *points) {
                lo = {std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
                hi = {std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
            }
    if (!(lo.x <= hi.x)) return log.Error("nothing to place: the inputs hold no vertices");

    double scale = options.scale > 0.0 ? options.scale : 1.0;
    if (options.fitCells > 0) {
        double larger = std::max(hi.x - lo.x, hi.z - lo.z);
        if (!(larger > 0.0))
            return log.Error("--fit: the model has no width in x or z to scale to " +
                             std::to_string(options.fitCells) + " cells");
        scale = options.fitCells * MapCellUnits / larger;
    }
    double margin = options.marginCells * MapCellUnits;
    double sizeX = (hi.x - lo.x) * scale, sizeZ = (hi.z - lo.z) * scale;
    int32_t cellsX = CellsFor(sizeX) + 2 * options.marginCells;
    int32_t cellsY = CellsFor(sizeZ) + 2 * options.marginCells;
    if (cellsX > MapMaxCells || cellsY > MapMaxCells || !std::isfinite(sizeX) ||
        !std::isfinite(sizeZ))
        return log.Error("the model is " + Number(sizeX) + " x " + Number(sizeZ) +
                         " units at scale " + Number(scale) + ", " + std::to_string(cellsX) +
                         " x " + std::to_string(cellsY) +
                         " cells with the margin; a map has at most 256 x 256 cells (8192 "
                         "units): use --fit CELLS or a smaller --scale");

    // Heights keep their meaning (sea level, a floor at 0) unless the ground rays can't reach.
    bool lift = hi.y * scale >= GroundRayTop || lo.y * scale <= GroundRayBottom;
    if (lift && (hi.y - lo.y) * scale >= GroundRayTop)
        return log.Error("the model is " + Number((hi.y - lo.y) * scale) + " units high at scale " +
                         Number(scale) +
                         "; the bake's ground rays start at y = 10000: use a "
                         "smaller --scale, or --height-scale for a height map");
    double baseY = lift ? lo.y : 0.0;

    for (ImportMesh& mesh : scene.meshes)
        for (auto* points : {&mesh.positions, &mesh.framePositions})
            for (DVec3& p : *points)
                p = {(p.x - lo.x) * scale + margin, (p.y - baseY) * scale,
                     (p.z - hi.z) * scale - margin};

    placement.scale = scale;
    placement.min = {margin, (lo.y - baseY) * scale, -margin - sizeZ};
    placement.max = {margin + sizeX, (hi.y - baseY) * scale, -margin};
    placement.cellsX = cellsX;
    placement.cellsY = cellsY;
    placement.lifted = lift;
    if (lift)
        log.Note("heights moved to start at y = 0: at scale " + Number(scale) + " they ran from " +
                 Number(lo.y * scale) + " to " + Number(hi.y * scale) +
                 ", out of the bake's ground rays' reach");
    return true;
}

void AddGroundPlane(ImportScene& scene, const Placement& placement, double chunkSize) {
    double width = placement.cellsX * MapCellUnits, depth = placement.cellsY * MapCellUnits;
    auto cuts = [chunkSize](double length) {
        std::vector<double> at;
        for (double x = 0.0; x < length; x += chunkSize) at.push_back(x);
        at.push_back(length);
        return at;
    };
    std::vector<double> xs = cuts(width), zs = cuts(depth);
    ImportMesh ground;
    ground.name = "ground plane";
    ground.mapFrame = true;
    double y = placement.min.y;
    for (double z : zs)
        for (double x : xs) {
            ground.positions.push_back({x, y, -z});
            ground.normals.push_back({0.0, 1.0, 0.0});
        }
    uint32_t across = uint32_t(xs.size());
    auto at = [across](size_t i, size_t k) { return uint32_t(k * across + i); };
    // Columns along +x, rows along -z: (p00, p10, p11) and (p00, p11, p01) face up.
    for (size_t k = 0; k + 1 < zs.size(); ++k)
        for (size_t i = 0; i + 1 < xs.size(); ++i)
            ground.triangles.insert(ground.triangles.end(),
                                    {at(i, k), at(i + 1, k), at(i + 1, k + 1), at(i, k),
                                     at(i + 1, k + 1), at(i, k + 1)});
    scene.meshes.push_back(std::move(ground));
}
