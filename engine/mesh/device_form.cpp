#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/render_vertices.h"

// A clone that only borrowed the buffer frees its own draw groups and nothing else.
void CMesh::ReleaseDeviceForm() {
    if (vertexBuffer) {
        if (drawGroups) FREE(drawGroups);
        if (ownership & MeshOwnsDeviceForm) {
            // Only the renderer makes runs, and it installs the hook before the first.
            if (MeshFreeVertices) MeshFreeVertices(vertexBuffer);
            if (indices) FREE(indices);
            if (renderVertexSource) FREE(renderVertexSource);
            if (renderVertexUV[0]) FREE(renderVertexUV[0]);
            if (renderVertexUV[1]) FREE(renderVertexUV[1]);
        }
    }
    vertexBuffer = nullptr;
    renderVertexCount = 0;
    indices = nullptr;
    drawGroups = nullptr;
    renderVertexSource = nullptr;
    renderVertexUV[0] = renderVertexUV[1] = nullptr;
}
