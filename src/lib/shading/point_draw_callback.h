#pragma once

#include <osg/Drawable>
#include <osg/PrimitiveSet>

namespace Vorna {
namespace Orvane {

// Draws a thinned view of a large point cloud. Keeps per-context state in a const draw method,
// so one instance belongs to one graphics context; render thread.
class PointDrawCallback : public osg::Drawable::DrawCallback
{
public:
    enum DownSampleType : unsigned int {
        // Every factor-th vertex, through the attribute stride.
        StrideSample = 0,
        // A random subset of about count / factor, stable until the vertex count changes.
        IndexSample = 1,
    };

    void setDownSamples(unsigned int factor);
    unsigned int getDownSamples() const { return m_downSamples; }
    void setDownSampleType(DownSampleType type);
    DownSampleType getDownSampleType() const { return m_downSampleType; }
    // The sampled indices of the last index-sampled frame; null before one.
    const osg::DrawElementsUInt* sampledIndices() const { return m_indices.get(); }

    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override;

private:
    void drawPrimitivesImplementation(osg::RenderInfo& renderInfo,
                                      const osg::Geometry& geometry) const;
    void drawVertexArraysImplementation(osg::RenderInfo& renderInfo,
                                        const osg::Geometry& geometry) const;
    void drawStridedPrimitives(osg::RenderInfo& renderInfo, const osg::Geometry& geometry) const;

    unsigned int m_downSamples = 1;
    mutable const osg::BufferObject* m_lastBound = nullptr;
    DownSampleType m_downSampleType = IndexSample;
    mutable osg::ref_ptr<osg::DrawElementsUInt> m_indices;
    mutable unsigned int m_indexedCount = 0;
};

} // namespace Orvane
} // namespace Vorna
