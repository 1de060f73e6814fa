#pragma once

// The live-cloud ingest done by a plain OpenGL program on its own offscreen context: buffers
// sized for the whole scan up front, each patch written with glBufferSubData, a simply lit
// frame drawn after every `frameEvery` points. The yardstick of the canvas's own ingest figure.
double rawGlIngestMpts(int total, int patch, int frameEvery, int width, int height);
