#include "tool/import/cityjson_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "tool/import/input_file.h"
#include "tool/import/polygon_triangulate.h"

namespace {

using Json = nlohmann::json;

// A polygon's corners, all rings together; more is damage, and the triangulation's work grows
// with the square of it.
constexpr size_t MaxPolygonPoints = 16384;
// Template instances multiply a small file's vertices and surfaces; past this many corners of
// surfaces (or vertices placed by instances) the file is refused.
constexpr uint64_t MaxCorners = uint64_t(1) << 26;
// Polygons meeting at less than 30 degrees share their corners' normals: terrain stays smooth,
// a roof keeps its edge with the wall. Normals come from each polygon's own ring order, so they
// also carry the file's facing past the winding check, which could only guess it for a shell
// split into pieces by semantic surface type.
const double CreaseCos = 0.8660254037844386;
// Around a vertex shared by more polygons, each keeps its own normal: bounded work.
constexpr size_t MaxSmoothedPolygons = 64;

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// "an array", "a number": what a JSON value is, for messages.
std::string Kind(const Json& value) {
    std::string name = value.type_name();
    return (name[0] == 'a' || name[0] == 'o' ? "an " : "a ") + name;
}

std::string Count(size_t count, const std::string& what) {
    if (count == 1) return "1 " + what;
    size_t n = what.size();
    if (n > 2 && what.compare(n - 2, 2, "ex") == 0)
        return std::to_string(count) + " " + what.substr(0, n - 2) + "ices";
    if (n && what.back() == 'y') return std::to_string(count) + " " + what.substr(0, n - 1) + "ies";
    return std::to_string(count) + " " + what + "s";
}

// The DOM parse says only that it failed; a second pass with this finds where.
class ParseFailure : public nlohmann::json_sax<Json> {
public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        at = position;
        // "[json.exception.parse_error.101] parse error at line 1, column 9: syntax error ..."
        what = error.what();
        size_t start = what.find("] ");
        if (start != std::string::npos) what = what.substr(start + 2);
        const std::string lead = "parse error at ";
        if (what.compare(0, lead.size(), lead) == 0) what = what.substr(lead.size());
        return false;
    }

    size_t at = 0;
    std::string what = "the JSON ends early";
};

// A finite number, as integers and decimals alike.
bool Number(const Json& value, double& out) {
    if (!value.is_number()) return false;
    out = value.get<double>();
    return std::isfinite(out);
}

bool Triple(const Json& value, DVec3& out) {
    if (!value.is_array() || value.size() != 3) return false;
    return Number(value[0], out.x) && Number(value[1], out.y) && Number(value[2], out.z);
}

bool Index(const Json& value, uint64_t& out) {
    if (value.is_number_unsigned()) {
        out = value.get<uint64_t>();
        return true;
    }
    return false;
}

// Level of detail: a number in 1.0, a string such as "2.2" since 1.1; none (templates' users) 0.
bool LevelOfDetail(const Json& geometry, double& lod) {
    auto found = geometry.find("lod");
    lod = 0.0;
    if (found == geometry.end()) return true;
    if (found->is_string()) {
        const std::string& text = found->get_ref<const std::string&>();
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), lod);
        return error == std::errc() && end == text.data() + text.size() && std::isfinite(lod);
    }
    return Number(*found, lod);
}

enum class Shape { None, Surfaces, Solid, Solids, Instance };

Shape ShapeOf(const std::string& type) {
    if (type == "MultiSurface" || type == "CompositeSurface") return Shape::Surfaces;
    if (type == "Solid") return Shape::Solid;
    if (type == "MultiSolid" || type == "CompositeSolid") return Shape::Solids;
    if (type == "GeometryInstance") return Shape::Instance;
    return Shape::None;
}

// What each level of a shape's boundaries holds, outermost first, down to the vertex index.
const char* const LevelNames[] = {"solid", "shell", "surface", "ring", "vertex index"};

int FirstLevel(Shape shape) {
    return shape == Shape::Solids ? 0 : shape == Shape::Solid ? 1 : 2;
}

struct Group {
    std::string objectType, semantic;
    std::vector<uint32_t> surfaces;
};

struct Surface {
    uint32_t firstRing, endRing;  // into ringEnds
};

class CityJsonReader {
public:
    CityJsonReader(const std::string& input, ImportLog& messages)
        : path(input), file(BaseName(input)), log(messages) {}

    bool Read(const Json& root, std::vector<ImportMesh>& meshes);

private:
    bool Fail(const std::string& what) { return log.Error(path + ": " + what); }
    bool FailHere(const std::string& what) { return Fail(where + ": " + what); }

    bool ReadHeader(const Json& root);
    bool ReadVertices(const Json& root);
    bool ReadTemplates(const Json& root);
    bool ReadObject(const std::string& id, const Json& object);
    bool ReadInstance(const Json& instance);
    bool ReadShape(const std::string& type, const Json& geometry, uint32_t base,
                   uint64_t vertexCount, bool mirrored);
    bool ReadLevel(const Json& list, int level, const Json* values, const std::string& at);
    bool ReadSurface(const Json& surface, const Json* value, const std::string& at);
    bool ReadRing(const Json& ring, const std::string& at);
    uint32_t GroupFor(const std::string& semantic);
    void BuildMesh(const Group& group, const DVec3& lo, ImportMesh& mesh);
    void BuildMeshes(std::vector<ImportMesh>& meshes);

    std::string path, file;
    ImportLog& log;
    std::string version;
    DVec3 scale = {1, 1, 1}, translate = {0, 0, 0};
    std::vector<DVec3> coords;  // the file's vertices, then those placed by template instances
    std::vector<uint8_t> used;
    size_t fileVertices = 0;
    const Json* templates = nullptr;
    std::vector<DVec3> templateVertices;

    // While reading one geometry: where it is, for messages, and how its indices map.
    std::string where, objectType;
    std::vector<std::string> semanticTypes;
    uint32_t vertexBase = 0;
    uint64_t vertexLimit = 0;
    bool reverseRings = false;

    std::vector<uint32_t> corners, ringEnds;
    std::vector<Surface> surfaces;
    std::vector<Group> groups;
    std::map<std::pair<std::string, std::string>, uint32_t> groupIndex;
    std::map<std::string, size_t> objectTypes;
    uint64_t semanticsRead = 0;
    size_t objects = 0, bare = 0, pointsAndLines = 0, lowerDetail = 0, flatPolygons = 0,
           crossedPolygons = 0;
    std::map<std::string, size_t> unknownGeometry;
};

bool CityJsonReader::ReadHeader(const Json& root) {
    if (!root.is_object())
        return Fail("not a CityJSON file: the JSON is " + Kind(root) + ", not an object");
    auto type = root.find("type");
    if (type == root.end() || !type->is_string() || *type != "CityJSON") {
        if (type != root.end() && *type == "CityJSONFeature")
            return Fail(
                "a CityJSONFeature (one line of a CityJSON sequence) is not read alone; "
                "give the whole CityJSON file");
        return Fail("not a CityJSON file: no \"type\": \"CityJSON\"");
    }
    auto found = root.find("version");
    if (found != root.end() && !found->is_string())
        return Fail("\"version\" is " + Kind(*found) + ", not a string");
    version = found == root.end() ? "" : found->get<std::string>();
    bool known = false;
    for (const char* v : {"1.0", "1.1", "2.0"})
        known = known || version == v || version.rfind(std::string(v) + ".", 0) == 0;
    if (!known)
        log.Warning(path + ": CityJSON version " +
                    (version.empty() ? "not given" : Quoted(version)) + "; read as 2.0");

    auto transform = root.find("transform");
    if (transform == root.end()) return true;
    if (!transform->is_object())
        return Fail("\"transform\" is " + Kind(*transform) + ", not an object");
    for (auto [name, into] : {std::pair{"scale", &scale}, std::pair{"translate", &translate}}) {
        auto part = transform->find(name);
        if (part == transform->end())
            return Fail(std::string("\"transform\" has no \"") + name + "\"");
        if (!part->is_array() || part->size() != 3)
            return Fail(std::string("transform ") + name + " is not an array of three numbers");
        for (size_t i = 0; i < 3; ++i) {
            double value;
            if (!Number((*part)[i], value))
                return Fail(std::string("transform ") + name + "[" + std::to_string(i) + "] is " +
                            ((*part)[i].is_number() ? "not finite" : "not a number"));
            (i == 0 ? into->x : i == 1 ? into->y : into->z) = value;
        }
    }
    return true;
}

bool CityJsonReader::ReadVertices(const Json& root) {
    auto vertices = root.find("vertices");
    if (vertices == root.end() || !vertices->is_array())
        return Fail("\"vertices\" is missing or not an array");
    if (vertices->size() >= MaxCorners)
        return Fail(Count(vertices->size(), "vertex") + "; at most " +
                    std::to_string(MaxCorners - 1) + " are read");
    coords.reserve(vertices->size());
    for (const Json& vertex : *vertices) {
        DVec3 v;
        if (!Triple(vertex, v))
            return Fail("vertex " + std::to_string(coords.size()) + " is not three finite numbers");
        v = {v.x * scale.x + translate.x, v.y * scale.y + translate.y, v.z * scale.z + translate.z};
        if (!std::isfinite(v.x) || !std::isfinite(v.y) || !std::isfinite(v.z))
            return Fail("vertex " + std::to_string(coords.size()) +
                        " is out of range once scaled and moved by the transform");
        coords.push_back(v);
    }
    used.assign(coords.size(), 0);
    fileVertices = coords.size();
    return true;
}

bool CityJsonReader::ReadTemplates(const Json& root) {
    auto found = root.find("geometry-templates");
    if (found == root.end()) return true;
    auto list = found->is_object() ? found->find("templates") : found->end();
    auto points = found->is_object() ? found->find("vertices-templates") : found->end();
    if (!found->is_object() || list == found->end() || !list->is_array() ||
        points == found->end() || !points->is_array())
        return Fail(
            "\"geometry-templates\" needs the arrays \"templates\" and "
            "\"vertices-templates\"");
    for (const Json& vertex : *points) {
        DVec3 v;
        if (!Triple(vertex, v))
            return Fail("template vertex " + std::to_string(templateVertices.size()) +
                        " is not three finite numbers");
        templateVertices.push_back(v);
    }
    templates = &*list;
    return true;
}

uint32_t CityJsonReader::GroupFor(const std::string& semantic) {
    auto key = std::make_pair(objectType, semantic);
    auto found = groupIndex.find(key);
    if (found != groupIndex.end()) return found->second;
    groups.push_back({objectType, semantic, {}});
    return groupIndex[key] = uint32_t(groups.size() - 1);
}

bool CityJsonReader::ReadRing(const Json& ring, const std::string& at) {
    if (!ring.is_array())
        return FailHere(at + " is " + Kind(ring) +
                        " where a ring (an array of vertex indices) belongs: the boundaries "
                        "nest too shallowly");
    if (ring.size() > MaxPolygonPoints)
        return FailHere(at + " is a ring of more than " + std::to_string(MaxPolygonPoints) +
                        " vertices");
    size_t start = corners.size();
    for (size_t i = 0; i < ring.size(); ++i) {
        const Json& index = ring[i];
        uint64_t v;
        if (index.is_array())
            return FailHere(at + "[" + std::to_string(i) +
                            "] is an array where a vertex index belongs: the boundaries nest too "
                            "deeply");
        if (!Index(index, v))
            return FailHere(at + "[" + std::to_string(i) + "] is " +
                            (index.is_number() ? "not a whole number from 0 up" : Kind(index)) +
                            ", not a vertex index");
        if (v >= vertexLimit)
            return FailHere(at + "[" + std::to_string(i) + "]: vertex " + std::to_string(v) +
                            " is out of range; there are " + Count(vertexLimit, "vertex"));
        corners.push_back(vertexBase + uint32_t(v));
    }
    size_t size = corners.size() - start;
    if (size > 1 && corners[start] == corners.back()) {
        corners.pop_back();  // a ring closed the way GeoJSON closes it
        --size;
    }
    if (size < 3)
        return FailHere(at + " is a ring of " + Count(size, "vertex") +
                        "; a ring needs at least 3");
    for (size_t c = start; c < corners.size(); ++c) used[corners[c]] = 1;
    if (reverseRings) std::reverse(corners.begin() + std::ptrdiff_t(start), corners.end());
    ringEnds.push_back(uint32_t(corners.size()));
    return true;
}

bool CityJsonReader::ReadSurface(const Json& surface, const Json* value, const std::string& at) {
    if (!surface.is_array())
        return FailHere(at + " is " + Kind(surface) +
                        " where a surface (an array of rings) belongs: the boundaries nest too "
                        "shallowly");
    if (surface.empty()) return FailHere(at + " is a surface without rings");
    std::string semantic;
    if (value && !value->is_null()) {
        uint64_t index;
        if (!Index(*value, index) || index >= semanticTypes.size())
            return FailHere("semantics value for " + at + " is " +
                            (value->is_number()
                                 ? "not one of the " + Count(semanticTypes.size(), "surface") +
                                       " of its semantics"
                                 : Kind(*value)));
        semantic = semanticTypes[index];
    }
    size_t start = corners.size();
    Surface taken = {uint32_t(ringEnds.size()), 0};
    for (size_t r = 0; r < surface.size(); ++r) {
        if (!ReadRing(surface[r], at + "[" + std::to_string(r) + "]")) return false;
        if (corners.size() - start > MaxPolygonPoints)
            return FailHere(at + " is a polygon of more than " + std::to_string(MaxPolygonPoints) +
                            " corners");
    }
    if (corners.size() >= MaxCorners)
        return Fail("more than " + std::to_string(MaxCorners) + " corners of surfaces");
    taken.endRing = uint32_t(ringEnds.size());
    groups[GroupFor(semantic)].surfaces.push_back(uint32_t(surfaces.size()));
    surfaces.push_back(taken);
    return true;
}

bool CityJsonReader::ReadLevel(const Json& list, int level, const Json* values,
                               const std::string& at) {
    if (!list.is_array())
        return FailHere(at + " is " + Kind(list) + " where an array of " + LevelNames[level] +
                        "s belongs: the boundaries nest too shallowly");
    if (values && values->is_null()) values = nullptr;
    if (values && (!values->is_array() || values->size() != list.size()))
        return FailHere("semantics values for " + at + " don't match the boundaries: " +
                        (values->is_array() ? Count(values->size(), "value") + " for " +
                                                  Count(list.size(), LevelNames[level])
                                            : Kind(*values)));
    for (size_t i = 0; i < list.size(); ++i) {
        std::string item = at + "[" + std::to_string(i) + "]";
        const Json* value = values ? &(*values)[i] : nullptr;
        bool read = level == 2 ? ReadSurface(list[i], value, item)
                               : ReadLevel(list[i], level + 1, value, item);
        if (!read) return false;
    }
    return true;
}

bool CityJsonReader::ReadShape(const std::string& type, const Json& geometry, uint32_t base,
                               uint64_t vertexCount, bool mirrored) {
    vertexBase = base;
    vertexLimit = vertexCount;
    reverseRings = mirrored;
    semanticTypes.clear();
    const Json* values = nullptr;
    auto semantics = geometry.find("semantics");
    if (semantics != geometry.end() && !semantics->is_null()) {
        auto list = semantics->is_object() ? semantics->find("surfaces") : semantics->end();
        if (list == semantics->end() || !list->is_array())
            return FailHere("semantics without an array of \"surfaces\"");
        semanticsRead += list->size();
        if (semanticsRead >= MaxCorners)
            return Fail("more than " + std::to_string(MaxCorners) + " semantic surfaces");
        for (const Json& surface : *list) {
            auto kind = surface.is_object() ? surface.find("type") : surface.end();
            if (kind == surface.end() || !kind->is_string())
                return FailHere("semantic surface " + std::to_string(semanticTypes.size()) +
                                " has no \"type\" string");
            semanticTypes.push_back(kind->get<std::string>());
        }
        auto found = semantics->find("values");
        if (found != semantics->end()) values = &*found;
    }
    auto boundaries = geometry.find("boundaries");
    if (boundaries == geometry.end()) return FailHere(type + " without \"boundaries\"");
    return ReadLevel(*boundaries, FirstLevel(ShapeOf(type)), values, "boundaries");
}

bool CityJsonReader::ReadInstance(const Json& instance) {
    uint64_t index = 0, reference = 0;
    auto found = instance.find("template");
    if (!templates)
        return FailHere("a GeometryInstance, but the file has no \"geometry-templates\"");
    if (found == instance.end() || !Index(*found, index) || index >= templates->size())
        return FailHere("GeometryInstance \"template\" is not one of the file's " +
                        Count(templates->size(), "template"));
    auto point = instance.find("boundaries");
    if (point == instance.end() || !point->is_array() || point->size() != 1 ||
        !Index((*point)[0], reference) || reference >= coords.size())
        return FailHere("GeometryInstance \"boundaries\" is not one vertex index of the file's " +
                        Count(coords.size(), "vertex"));
    auto matrix = instance.find("transformationMatrix");
    double m[16];
    if (matrix == instance.end() || !matrix->is_array() || matrix->size() != 16)
        return FailHere("GeometryInstance without a \"transformationMatrix\" of 16 numbers");
    for (size_t i = 0; i < 16; ++i)
        if (!Number((*matrix)[i], m[i]))
            return FailHere("GeometryInstance transformationMatrix[" + std::to_string(i) +
                            "] is not a finite number");
    const Json& shape = (*templates)[index];
    auto type = shape.is_object() ? shape.find("type") : shape.end();
    if (type == shape.end() || !type->is_string() ||
        ShapeOf(type->get<std::string>()) == Shape::Instance)
        return FailHere("template " + std::to_string(index) + " is not a surface geometry");
    std::string shapeType = type->get<std::string>();
    if (ShapeOf(shapeType) == Shape::None) {
        ++pointsAndLines;
        return true;
    }
    if (coords.size() + templateVertices.size() >= MaxCorners)
        return Fail("template instances place more than " + std::to_string(MaxCorners) +
                    " vertices");
    // Row by row, applied to (x, y, z, 1), then moved to the reference point.
    const DVec3 at = coords[reference];
    uint32_t base = uint32_t(coords.size());
    for (const DVec3& t : templateVertices) {
        DVec3 p = {m[0] * t.x + m[1] * t.y + m[2] * t.z + m[3] + at.x,
                   m[4] * t.x + m[5] * t.y + m[6] * t.z + m[7] + at.y,
                   m[8] * t.x + m[9] * t.y + m[10] * t.z + m[11] + at.z};
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            return FailHere("GeometryInstance places a template vertex out of range");
        coords.push_back(p);
        used.push_back(0);
    }
    double det = m[0] * (m[5] * m[10] - m[6] * m[9]) - m[1] * (m[4] * m[10] - m[6] * m[8]) +
                 m[2] * (m[4] * m[9] - m[5] * m[8]);
    std::string outer = where;
    where += " (template " + std::to_string(index) + ")";
    // A mirroring matrix turns the surfaces inside out; reversed rings turn them back.
    bool read = ReadShape(shapeType, shape, base, templateVertices.size(), det < 0.0);
    where = outer;
    return read;
}

bool CityJsonReader::ReadObject(const std::string& id, const Json& object) {
    where = "object " + Quoted(id);
    if (!object.is_object()) return FailHere("is " + Kind(object) + ", not an object");
    auto type = object.find("type");
    if (type == object.end() || !type->is_string()) return FailHere("no \"type\" string");
    objectType = type->get<std::string>();
    ++objects;
    ++objectTypes[objectType];
    auto list = object.find("geometry");
    if (list == object.end() || list->is_null() || (list->is_array() && list->empty())) {
        ++bare;
        return true;
    }
    if (!list->is_array()) return FailHere("\"geometry\" is not an array");
    // Each geometry's type and level of detail first: only the highest level is read.
    std::vector<std::pair<std::string, double>> kinds;
    double best = -HUGE_VAL;
    for (size_t g = 0; g < list->size(); ++g) {
        const Json& geometry = (*list)[g];
        where = "object " + Quoted(id) + ", geometry " + std::to_string(g);
        auto kind = geometry.is_object() ? geometry.find("type") : geometry.end();
        if (kind == geometry.end() || !kind->is_string()) return FailHere("no \"type\" string");
        std::string name = kind->get<std::string>();
        double lod = 0.0;
        const Json* holder = &geometry;
        uint64_t index;
        auto templ = geometry.find("template");
        if (ShapeOf(name) == Shape::Instance && templates && templ != geometry.end() &&
            Index(*templ, index) && index < templates->size() && (*templates)[index].is_object())
            holder = &(*templates)[index];
        if (!LevelOfDetail(*holder, lod)) return FailHere("\"lod\" is not a number");
        kinds.push_back({name, lod});
        if (ShapeOf(name) == Shape::None) {
            if (name == "MultiPoint" || name == "MultiLineString")
                ++pointsAndLines;
            else
                ++unknownGeometry[name];
            continue;
        }
        best = std::max(best, lod);
    }
    for (size_t g = 0; g < list->size(); ++g) {
        if (ShapeOf(kinds[g].first) == Shape::None) continue;
        if (kinds[g].second < best) {
            ++lowerDetail;
            continue;
        }
        where = "object " + Quoted(id) + ", geometry " + std::to_string(g);
        const std::string& shape = kinds[g].first;
        bool read = ShapeOf(shape) == Shape::Instance
                        ? ReadInstance((*list)[g])
                        : ReadShape(shape, (*list)[g], 0, fileVertices, false);
        if (!read) return false;
    }
    return true;
}

void CityJsonReader::BuildMesh(const Group& group, const DVec3& lo, ImportMesh& mesh) {
    struct Piece {
        DVec3 normal;
        size_t first, end;  // into the group's triangle corners
    };
    std::vector<Piece> pieces;
    std::vector<uint32_t> corner, triangles, ends;  // corner: indices into corners
    std::vector<DVec3> points;
    for (uint32_t s : group.surfaces) {
        const Surface& surface = surfaces[s];
        uint32_t first = surface.firstRing ? ringEnds[surface.firstRing - 1] : 0;
        points.clear();
        ends.clear();
        for (uint32_t r = surface.firstRing; r < surface.endRing; ++r) {
            for (uint32_t c = r ? ringEnds[r - 1] : 0; c < ringEnds[r]; ++c)
                points.push_back(coords[corners[c]] - lo);
            ends.push_back(uint32_t(points.size()));
        }
        triangles.clear();
        PolygonResult result = TriangulatePolygon(points, ends, triangles);
        flatPolygons += result.flat;
        crossedPolygons += !result.simple;
        if (triangles.empty()) continue;
        pieces.push_back({result.normal, corner.size(), corner.size() + triangles.size()});
        for (uint32_t t : triangles) corner.push_back(first + t);
    }
    // Each vertex once for each normal it takes: the mean of the normals of the polygons around
    // it that meet its own within the crease angle.
    std::vector<std::pair<uint32_t, uint32_t>> uses;  // vertex id, piece
    for (uint32_t p = 0; p < pieces.size(); ++p)
        for (size_t c = pieces[p].first; c < pieces[p].end; ++c)
            uses.push_back({corners[corner[c]], p});
    std::sort(uses.begin(), uses.end());
    uses.erase(std::unique(uses.begin(), uses.end()), uses.end());
    std::vector<uint32_t> position(uses.size());
    for (size_t run = 0, next; run < uses.size(); run = next) {
        next = run;
        while (next < uses.size() && uses[next].first == uses[run].first) ++next;
        bool smooth = next - run <= MaxSmoothedPolygons;
        size_t made = mesh.positions.size();
        for (size_t u = run; u < next; ++u) {
            DVec3 own = pieces[uses[u].second].normal, n = {0.0, 0.0, 0.0};
            for (size_t q = run; smooth && q < next; ++q) {
                const DVec3& other = pieces[uses[q].second].normal;
                if (Dot(own, other) >= CreaseCos) n = n + other;
            }
            double length = std::sqrt(Dot(n, n));
            n = length > 0.0 ? DVec3{n.x / length, n.y / length, n.z / length} : own;
            size_t found = made;
            auto same = [&n](const DVec3& m) { return m.x == n.x && m.y == n.y && m.z == n.z; };
            while (smooth && found < mesh.positions.size() && !same(mesh.normals[found])) ++found;
            if (!smooth || found == mesh.positions.size()) {
                found = mesh.positions.size();
                mesh.positions.push_back(coords[uses[u].first] - lo);
                mesh.normals.push_back(n);
            }
            position[u] = uint32_t(found);
        }
    }
    for (uint32_t p = 0; p < pieces.size(); ++p)
        for (size_t c = pieces[p].first; c < pieces[p].end; ++c) {
            auto at =
                std::lower_bound(uses.begin(), uses.end(), std::make_pair(corners[corner[c]], p));
            mesh.triangles.push_back(position[size_t(at - uses.begin())]);
        }
}

void CityJsonReader::BuildMeshes(std::vector<ImportMesh>& meshes) {
    DVec3 lo = {HUGE_VAL, HUGE_VAL, HUGE_VAL};
    for (size_t i = 0; i < coords.size(); ++i)
        if (used[i])
            lo = {std::min(lo.x, coords[i].x), std::min(lo.y, coords[i].y),
                  std::min(lo.z, coords[i].z)};
    for (const Group& group : groups) {
        ImportMesh mesh;
        mesh.name = file + ": " + group.objectType;
        if (!group.semantic.empty()) mesh.name += " " + group.semantic;
        mesh.fileUp = UpAxis::Z;
        BuildMesh(group, lo, mesh);
        if (!mesh.triangles.empty()) meshes.push_back(std::move(mesh));
    }
}

bool CityJsonReader::Read(const Json& root, std::vector<ImportMesh>& meshes) {
    if (!ReadHeader(root) || !ReadVertices(root) || !ReadTemplates(root)) return false;
    auto objectList = root.find("CityObjects");
    if (objectList == root.end() || !objectList->is_object())
        return Fail("\"CityObjects\" is missing or not an object");
    for (const auto& [id, object] : objectList->items())
        if (!ReadObject(id, object)) return false;
    BuildMeshes(meshes);

    std::string counts;
    for (const auto& [type, count] : objectTypes)
        counts += (counts.empty() ? ": " : ", ") + std::to_string(count) + " " + type;
    log.Note(path + ": CityJSON" + (version.empty() ? "" : " " + version) + ", " +
             Count(objects, "city object") + counts +
             (bare ? " (" + std::to_string(bare) + " without geometry)" : ""));
    if (lowerDetail)
        log.Note(path + ": " + Count(lowerDetail, "geometry") +
                 " of a lower level of detail than their object's highest left out");
    if (pointsAndLines)
        log.Note(path + ": " + Count(pointsAndLines, "point or line geometry") +
                 " left out (no faces)");
    for (const auto& [type, count] : unknownGeometry)
        log.Warning(path + ": geometry type " + Quoted(type) + " is not known; " +
                    Count(count, "geometry") + " left out");
    if (flatPolygons)
        log.Note(path + ": " + Count(flatPolygons, "polygon") + " without area left out");
    if (crossedPolygons)
        log.Warning(path + ": " + Count(crossedPolygons, "polygon") +
                    " with crossing edges or holes outside them, cut as well as they allow");
    if (meshes.empty()) return Fail("no surfaces with an area in the file");
    log.Note(path +
             ": a city model: it stands on a ground plane at its lowest point (as with "
             "--ground)");
    return true;
}

}  // namespace

bool ReadCityJson(const std::string& path, const std::vector<uint8_t>& bytes, ImportScene& scene,
                  ImportLog& log) {
    if (bytes.size() > MaxCityJsonBytes)
        return log.Error(path + ": " + std::to_string(bytes.size()) +
                         " bytes of JSON; CityJSON files of at most " +
                         std::to_string(MaxCityJsonBytes >> 20) + " MiB are read");
    Json root = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (root.is_discarded()) {
        ParseFailure failure;
        Json::sax_parse(bytes.begin(), bytes.end(), &failure);
        return log.Error(path + ": not JSON: at byte " + std::to_string(failure.at) + " (" +
                         failure.what + ")");
    }
    std::vector<ImportMesh> meshes;
    CityJsonReader reader(path, log);
    if (!reader.Read(root, meshes)) return false;
    for (ImportMesh& mesh : meshes) scene.meshes.push_back(std::move(mesh));
    scene.groundPlane = true;
    return true;
}
