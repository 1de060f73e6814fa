#pragma once

#include <osg/Array>
#include <osg/Geometry>

namespace Vorna {
namespace Orvane {

// Triangle soups (GL_TRIANGLES) of simple solids, with outward normals, for aids whose programs
// read their own attribute slots and which still must be pickable by the scene graph's
// intersectors (classic vertex array).
class ShapeMesh
{
public:
    ShapeMesh();

    // A tube from `a` to `b`, open at both ends.
    void addTube(const osg::Vec3f& a, const osg::Vec3f& b, float radius, int sides = 16);
    // A cone with its base disc at `base` and its point at `tip`.
    void addCone(const osg::Vec3f& base, const osg::Vec3f& tip, float radius, int sides = 24);
    void addSphere(const osg::Vec3f& center, float radius, int rings = 12, int sectors = 24);

    bool empty() const { return m_vertices->empty(); }
    // Positions as the vertex array, normals per vertex; `normalSlot` puts them on that generic
    // slot instead of the classic normal array.
    osg::Geometry* build(int normalSlot = -1) const;

private:
    void triangle(const osg::Vec3f& a, const osg::Vec3f& b, const osg::Vec3f& c,
                  const osg::Vec3f& na, const osg::Vec3f& nb, const osg::Vec3f& nc);

    osg::ref_ptr<osg::Vec3Array> m_vertices;
    osg::ref_ptr<osg::Vec3Array> m_normals;
};

} // namespace Orvane
} // namespace Vorna
