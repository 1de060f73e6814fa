#pragma once

#include <osg/Image>
#include <osg/Viewport>

namespace Vorna {
namespace Orvane {

// Reads depth or colour from the framebuffer that is bound. One per canvas; render thread only,
// with the context current (from inside a camera draw callback).
class ReadMultiSampleFBO
{
public:
    ReadMultiSampleFBO(int width, int height);
    ~ReadMultiSampleFBO();

    // Whether the framebuffer bound for reading has samples: it must be resolved before a read.
    bool isMultiSample() const;
    // One float per pixel, window depth.
    bool readDepth(osg::Image* image, int x, int y, int width, int height);
    // RGBA, one byte per channel.
    bool readColor(osg::Image* image, int x, int y, int width, int height);

    // The resolve target is made at first use and follows the size of the read source.
    bool needResize(int w, int h, int& outW, int& outH) const;
    void resizeFBO(int w, int h);
    void initializeFBO();
    void releaseFBO();
    bool isFBOInitialized() const { return m_initialized; }
    unsigned int lastError() const { return m_lastError; }

private:
    bool read(osg::Image* image, int x, int y, int width, int height, unsigned int format,
              unsigned int type);
    // Blits the bound multisampled framebuffer into the resolve target.
    void resolve(unsigned int mask);

    unsigned int m_colorBuffer = 0;
    unsigned int m_depthBuffer = 0;

    unsigned int m_readFbo = 0;
    unsigned int m_resolveFbo = 0;
    unsigned int m_reserved0 = 0;
    unsigned int m_reserved1 = 0;
    unsigned int m_lastError = 0;
    bool m_initialized = false;
    int m_width;
    int m_height;
};

class RenderInfo;

// What every depth post-draw callback does: the canvas's read-back object reads a window-depth
// region of what was just drawn. False without a read-back object or when the read fails.
bool readCanvasDepth(const RenderInfo& info, osg::Image* image, int x, int y, int width,
                     int height);
bool readCanvasDepth(const RenderInfo& info, osg::Image* image, const osg::Viewport& region);

} // namespace Orvane
} // namespace Vorna
