#include "base/memory.h"
#include "engine/mesh/mesh.h"

// A clone that only borrowed the buffer frees its own draw groups and nothing else.
void CMesh::ReleaseDeviceForm() {
    if (vertexBuffer) {
        if (drawGroups) FREE(drawGroups);
        if (ownership & MeshOwnsDeviceForm) {
            // Giving the sub-allocation back to its pool comes with the vertex buffer pools; until
            // they land no mesh builds a buffer of its own.
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
