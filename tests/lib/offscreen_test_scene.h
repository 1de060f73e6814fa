#pragma once

// A small scene and a frame sink shared by the offscreen tests.
#include <QColor>
#include <QMutex>
#include <atomic>
#include <functional>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Image>

namespace OrvaneTest {

// Collects the frames of an offscreen surface; its callback runs on the surface's thread.
class FrameSink
{
public:
    std::function<void(osg::ref_ptr<osg::Image>&)> callback()
    {
        return [this](osg::ref_ptr<osg::Image>& image) {
            QMutexLocker lock(&m_mutex);
            m_last = image;
            ++m_count;
        };
    }
    int count() const { return m_count.load(); }
    osg::ref_ptr<osg::Image> last() const
    {
        QMutexLocker lock(&m_mutex);
        return m_last;
    }

private:
    mutable QMutex m_mutex;
    osg::ref_ptr<osg::Image> m_last;
    std::atomic<int> m_count{0};
};

// An upright rectangle in the x-z plane, facing the default home view (which looks along +y).
// ShapeDrawable crashes inside Mesa here, so plain geometry with its own vertex array object.
inline osg::Geode* makeQuad(float x0, float z0, float x1, float z1, const osg::Vec4f& color)
{
    auto* vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3f(x0, 0.0f, z0));
    vertices->push_back(osg::Vec3f(x1, 0.0f, z0));
    vertices->push_back(osg::Vec3f(x1, 0.0f, z1));
    vertices->push_back(osg::Vec3f(x0, 0.0f, z1));
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 4));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

// Pixel of an RGB frame whose top row comes first.
inline QColor pixelOf(const osg::Image* image, int x, int y)
{
    const unsigned char* p = image->data(x, y);
    return QColor(p[0], p[1], p[2]);
}

} // namespace OrvaneTest
