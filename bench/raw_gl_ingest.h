#pragma once

// The live-cloud ingest done by a plain OpenGL program on its own offscreen context: buffers
// sized for the whole scan up front, each patch written with glBufferSubData, a simply lit
// frame drawn after every `frameEvery` points. The yardstick of the canvas's own ingest figure.
double rawGlIngestMpts(int total, int patch, int frameEvery, int width, int height);

#include <memory>
#include <vector>

// A plain OpenGL program drawing a cloud of points with a lit one-pixel program, on its own
// offscreen context: the yardstick of the canvas's whole-cloud frame figures. Four buffers,
// one per attribute, sized for `capacity` points up front. Every call makes its context current
// on the calling thread and leaves it current.
class RawGlCloud
{
public:
    RawGlCloud(int capacity, int width, int height);
    ~RawGlCloud();
    bool isValid() const;

    // Points [first, first + count) of the cloud, three floats a point each.
    void write(int first, int count, const float* position, const float* normal,
               const float* colour);
    // The whole cloud handed over at once: the buffers are specified afresh with the data.
    void replace(int count, const float* position, const float* normal, const float* colour);
    // Points written at the given ids through mapped buffers.
    void scatter(const std::vector<int>& ids, const float* position, const float* normal,
                 const float* colour);
    // Milliseconds to draw every `every`-th of the first `count` points seen from `eye`
    // (looking at the origin, z up, the scenes' field of view), finished.
    double frameMs(int count, const float eye[3], int every = 1);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
