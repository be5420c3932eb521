#include "tool/import/winding.h"

#include <algorithm>
#include <string>
#include <utility>

#include "tool/import/mesh_weld.h"

namespace {

// One use of an undirected edge by a face; forward when the face runs from the lower vertex id.
struct EdgeUse {
    uint64_t key;
    uint32_t face;
    bool forward;
};

struct Link {
    uint32_t other;
    bool sameDirection;  // both faces run the shared edge the same way: they disagree
};

class WindingFixer {
public:
    WindingFixer(ImportMesh& target, const std::vector<uint32_t>& welded)
        : mesh(target), weld(welded), faces(target.triangles.size() / 3) {}

    WindingReport Run();

private:
    uint32_t Corner(size_t face, int k) const { return mesh.triangles[face * 3 + k]; }
    DVec3 Normal(size_t face) const {
        return VisibleNormal(mesh.positions[Corner(face, 0)], mesh.positions[Corner(face, 1)],
                             mesh.positions[Corner(face, 2)]);
    }
    void Turn(size_t face) {
        std::swap(mesh.triangles[face * 3 + 1], mesh.triangles[face * 3 + 2]);
    }

    void MatchNormals();
    void BuildLinks();
    void WalkParts();
    void SettlePart(const std::vector<uint32_t>& part, bool closed);

    ImportMesh& mesh;
    const std::vector<uint32_t>& weld;
    size_t faces;
    bool hasNormals = false;
    std::vector<uint32_t> linkStart;  // faces + 1 offsets into links
    std::vector<Link> links;
    std::vector<uint8_t> onBorder;  // a face with an edge not shared by exactly two faces
    WindingReport report;
};

void WindingFixer::MatchNormals() {
    for (size_t f = 0; f < faces; ++f) {
        DVec3 n = Normal(f);
        bool against = true;
        for (int k = 0; k < 3 && against; ++k) against = Dot(n, mesh.normals[Corner(f, k)]) < 0.0;
        if (!against) continue;
        Turn(f);
        ++report.againstNormals;
    }
}

void WindingFixer::BuildLinks() {
    std::vector<EdgeUse> uses;
    uses.reserve(faces * 3);
    for (size_t f = 0; f < faces; ++f)
        for (int k = 0; k < 3; ++k) {
            uint32_t a = weld[Corner(f, k)], b = weld[Corner(f, (k + 1) % 3)];
            if (a == b) continue;  // a collapsed edge joins nothing
            uint64_t key = uint64_t(std::min(a, b)) << 32 | std::max(a, b);
            uses.push_back({key, uint32_t(f), a < b});
        }
    std::sort(uses.begin(), uses.end(), [](const EdgeUse& x, const EdgeUse& y) {
        return x.key != y.key ? x.key < y.key : x.face < y.face;
    });
    onBorder.assign(faces, 0);
    std::vector<std::pair<uint32_t, Link>> pairs;
    for (size_t i = 0; i < uses.size();) {
        size_t j = i;
        while (j < uses.size() && uses[j].key == uses[i].key) ++j;
        if (j - i == 2) {
            bool same = uses[i].forward == uses[i + 1].forward;
            pairs.push_back({uses[i].face, {uses[i + 1].face, same}});
            pairs.push_back({uses[i + 1].face, {uses[i].face, same}});
        } else {
            for (size_t k = i; k < j; ++k) onBorder[uses[k].face] = 1;
        }
        i = j;
    }
    linkStart.assign(faces + 1, 0);
    for (const auto& pair : pairs) ++linkStart[pair.first + 1];
    for (size_t f = 0; f < faces; ++f) linkStart[f + 1] += linkStart[f];
    links.resize(pairs.size());
    std::vector<uint32_t> fill(linkStart.begin(), linkStart.end() - 1);
    for (const auto& pair : pairs) links[fill[pair.first]++] = pair.second;
}

// Breadth first over shared edges; without normals each face is set to agree with the face it
// was reached from. Faces met again are only checked.
void WindingFixer::WalkParts() {
    std::vector<int8_t> turn(faces, -1);  // -1 unvisited, else 0 or 1
    std::vector<uint32_t> part;
    for (size_t seed = 0; seed < faces; ++seed) {
        if (turn[seed] >= 0) continue;
        part.clear();
        part.push_back(uint32_t(seed));
        turn[seed] = 0;
        bool consistent = true;
        for (size_t next = 0; next < part.size(); ++next) {
            uint32_t f = part[next];
            for (uint32_t l = linkStart[f]; l < linkStart[f + 1]; ++l) {
                const Link& link = links[l];
                int8_t want = hasNormals ? 0 : int8_t(turn[f] ^ (link.sameDirection ? 1 : 0));
                if (turn[link.other] < 0) {
                    turn[link.other] = want;
                    part.push_back(link.other);
                }
                // Two faces agree when, after the turns, they run the shared edge opposite ways.
                bool agree = link.sameDirection == bool(turn[f] ^ turn[link.other]);
                if (!agree) consistent = false;
            }
        }
        size_t turned = 0;
        for (uint32_t f : part) turned += size_t(turn[f]);
        bool flipAll = turned * 2 > part.size();  // keep the winding most faces came with
        for (uint32_t f : part)
            if (bool(turn[f]) != flipAll) Turn(f), ++report.againstNeighbours;
        bool closed = consistent;
        for (size_t i = 0; closed && i < part.size(); ++i) closed = !onBorder[part[i]];
        SettlePart(part, closed);
    }
}

void WindingFixer::SettlePart(const std::vector<uint32_t>& part, bool closed) {
    double measure = 0.0;
    if (closed) {
        // Six times the enclosed volume, about the first corner to keep the sums small.
        DVec3 origin = mesh.positions[Corner(part[0], 0)];
        for (uint32_t f : part) {
            DVec3 a = mesh.positions[Corner(f, 0)] - origin,
                  b = mesh.positions[Corner(f, 1)] - origin,
                  c = mesh.positions[Corner(f, 2)] - origin;
            measure += Dot(a, Cross(b, c));
        }
    } else {
        if (hasNormals) return;
        for (uint32_t f : part) measure += Normal(f).y;  // twice the area seen from above, net
    }
    if (!(measure < 0.0)) return;
    if (closed && hasNormals) {
        ++report.insideOutKept;
        return;
    }
    for (uint32_t f : part) Turn(f);
    (closed ? report.insideOutFaces : report.downFacingFaces) += part.size();
}

WindingReport WindingFixer::Run() {
    hasNormals = mesh.normals.size() == mesh.positions.size();
    if (hasNormals) MatchNormals();
    BuildLinks();
    WalkParts();
    return report;
}

}  // namespace

WindingReport FixWinding(ImportMesh& mesh, const std::vector<uint32_t>& weld) {
    WindingFixer fixer(mesh, weld);
    return fixer.Run();
}

std::string DescribeWinding(const WindingReport& report) {
    std::string text;
    auto add = [&](size_t count, const std::string& what) {
        if (!count) return;
        text += text.empty() ? "" : "; ";
        text += std::to_string(count) + " " + what;
    };
    add(report.againstNormals, "faces were wound against their normals and were turned");
    add(report.againstNeighbours, "faces were wound against their neighbours and were turned");
    add(report.insideOutFaces, "faces of closed parts that were inside out were turned");
    add(report.downFacingFaces, "faces of open parts that faced down were turned over");
    add(report.insideOutKept, "closed parts face inward, as their normals say; left as they are");
    return text;
}
