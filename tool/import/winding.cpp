#include "tool/import/winding.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

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

// A whole part is turned only on clear evidence: a closed part by the sign of its volume; an
// open one when nearly all of its area seen from above faces down. A scan with a few holes faces
// up and down alike, and its source winding is kept.
void WindingFixer::SettlePart(const std::vector<uint32_t>& part, bool closed) {
    if (closed) {
        // Six times the enclosed volume, about the first corner to keep the sums small.
        double volume = 0.0;
        DVec3 origin = mesh.positions[Corner(part[0], 0)];
        for (uint32_t f : part) {
            DVec3 a = mesh.positions[Corner(f, 0)] - origin,
                  b = mesh.positions[Corner(f, 1)] - origin,
                  c = mesh.positions[Corner(f, 2)] - origin;
            volume += Dot(a, Cross(b, c));
        }
        if (!(volume < 0.0)) return;
        if (hasNormals) {
            ++report.insideOutKept;
            return;
        }
        for (uint32_t f : part) Turn(f);
        ++report.insideOutParts;
        report.insideOutFaces += part.size();
        return;
    }
    if (hasNormals) return;
    double up = 0.0, down = 0.0;  // twice the area seen from above
    for (uint32_t f : part) {
        double y = Normal(f).y;
        (y > 0.0 ? up : down) += std::fabs(y);
    }
    double downShare = down / (up + down);
    if (!(downShare >= OverwhelmingDownShare)) {
        if (up + down > 0.0 && downShare > 0.5) ++report.undecidedParts;
        return;
    }
    for (uint32_t f : part) Turn(f);
    ++report.downFacingParts;
    report.downFacingFaces += part.size();
    report.leastDownShare = std::min(report.leastDownShare, downShare);
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

namespace {

std::string Count(size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace

// "turned: 2 faces wound against the source's normals; 1 closed part (12 faces) enclosing a
// negative volume"
std::string DescribeWinding(const WindingReport& report) {
    std::vector<std::string> turned;
    auto faces = [](size_t n) { return Count(n, "face", "faces"); };
    if (report.againstNormals)
        turned.push_back(faces(report.againstNormals) + " wound against the source's normals");
    if (report.againstNeighbours)
        turned.push_back(faces(report.againstNeighbours) + " wound against the neighbouring faces");
    if (report.insideOutParts)
        turned.push_back(Count(report.insideOutParts, "closed part", "closed parts") + " (" +
                         faces(report.insideOutFaces) + ") enclosing a negative volume");
    if (report.downFacingParts)
        turned.push_back(
            Count(report.downFacingParts, "open part", "open parts") + " (" +
            faces(report.downFacingFaces) + ") facing down " +
            (report.leastDownShare < 1.0
                 ? "over at least " +
                       std::to_string(int(std::floor(report.leastDownShare * 100.0))) +
                       "% of the area seen from above"
                 : "all over"));
    std::string text;
    for (const std::string& what : turned) text += (text.empty() ? "turned: " : "; ") + what;
    if (report.insideOutKept)
        text += std::string(text.empty() ? "" : "; ") + "kept: " + Count(report.insideOutKept, "closed part", "closed parts") +
                " facing inward, as the normals say";
    return text;
}

std::string DescribeKeptParts(const WindingReport& report) {
    if (!report.undecidedParts) return "";
    return Count(report.undecidedParts, "open part faces", "open parts face") +
           " down more than up, but not clearly; the source's winding is kept";
}
