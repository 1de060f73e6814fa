#include "shape_mesh.h"

#include <cmath>

namespace Vorna {
namespace Orvane {

namespace {

// Two unit vectors that make a right-handed frame with `axis`.
void basis(const osg::Vec3f& axis, osg::Vec3f& u, osg::Vec3f& v)
{
    const osg::Vec3f helper =
        std::fabs(axis.z()) < 0.9f ? osg::Vec3f(0, 0, 1) : osg::Vec3f(1, 0, 0);
    u = helper ^ axis;
    u.normalize();
    v = axis ^ u;
    v.normalize();
}

} // namespace

ShapeMesh::ShapeMesh() : m_vertices(new osg::Vec3Array), m_normals(new osg::Vec3Array) {}

void ShapeMesh::triangle(const osg::Vec3f& a, const osg::Vec3f& b, const osg::Vec3f& c,
                         const osg::Vec3f& na, const osg::Vec3f& nb, const osg::Vec3f& nc)
{
    m_vertices->push_back(a);
    m_vertices->push_back(b);
    m_vertices->push_back(c);
    m_normals->push_back(na);
    m_normals->push_back(nb);
    m_normals->push_back(nc);
}

void ShapeMesh::addTube(const osg::Vec3f& a, const osg::Vec3f& b, float radius, int sides)
{
    osg::Vec3f axis = b - a;
    if (axis.length2() == 0.0f || sides < 3)
        return;
    axis.normalize();
    osg::Vec3f u, v;
    basis(axis, u, v);
    for (int i = 0; i < sides; ++i) {
        const float a0 = 2.0f * osg::PIf * i / sides;
        const float a1 = 2.0f * osg::PIf * (i + 1) / sides;
        const osg::Vec3f n0 = u * std::cos(a0) + v * std::sin(a0);
        const osg::Vec3f n1 = u * std::cos(a1) + v * std::sin(a1);
        triangle(a + n0 * radius, a + n1 * radius, b + n1 * radius, n0, n1, n1);
        triangle(a + n0 * radius, b + n1 * radius, b + n0 * radius, n0, n1, n0);
    }
}

void ShapeMesh::addCone(const osg::Vec3f& base, const osg::Vec3f& tip, float radius, int sides)
{
    osg::Vec3f axis = tip - base;
    const float height = axis.length();
    if (height == 0.0f || sides < 3)
        return;
    axis /= height;
    osg::Vec3f u, v;
    basis(axis, u, v);
    for (int i = 0; i < sides; ++i) {
        const float a0 = 2.0f * osg::PIf * i / sides;
        const float a1 = 2.0f * osg::PIf * (i + 1) / sides;
        const osg::Vec3f r0 = u * std::cos(a0) + v * std::sin(a0);
        const osg::Vec3f r1 = u * std::cos(a1) + v * std::sin(a1);
        // Slanted normals: the side leans in by atan(radius / height).
        osg::Vec3f n0 = r0 * height + axis * radius;
        osg::Vec3f n1 = r1 * height + axis * radius;
        n0.normalize();
        n1.normalize();
        osg::Vec3f nt = n0 + n1;
        nt.normalize();
        triangle(base + r0 * radius, base + r1 * radius, tip, n0, n1, nt);
        triangle(base, base + r1 * radius, base + r0 * radius, -axis, -axis, -axis);
    }
}

void ShapeMesh::addSphere(const osg::Vec3f& center, float radius, int rings, int sectors)
{
    if (rings < 2 || sectors < 3)
        return;
    auto at = [&](int ring, int sector) {
        const float theta = osg::PIf * ring / rings;
        const float phi = 2.0f * osg::PIf * sector / sectors;
        return osg::Vec3f(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                          std::cos(theta));
    };
    for (int r = 0; r < rings; ++r) {
        for (int s = 0; s < sectors; ++s) {
            const osg::Vec3f n00 = at(r, s), n01 = at(r, s + 1);
            const osg::Vec3f n10 = at(r + 1, s), n11 = at(r + 1, s + 1);
            if (r != 0)
                triangle(center + n00 * radius, center + n10 * radius, center + n01 * radius, n00,
                         n10, n01);
            if (r != rings - 1)
                triangle(center + n01 * radius, center + n10 * radius, center + n11 * radius, n01,
                         n10, n11);
        }
    }
}

osg::Geometry* ShapeMesh::build(int normalSlot) const
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    auto* vertices = new osg::Vec3Array(*m_vertices);
    auto* normals = new osg::Vec3Array(*m_normals);
    geometry->setVertexArray(vertices);
    if (normalSlot >= 0)
        geometry->setVertexAttribArray(static_cast<unsigned int>(normalSlot), normals,
                                       osg::Array::BIND_PER_VERTEX);
    else
        geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(
        new osg::DrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(vertices->size())));
    return geometry;
}

} // namespace Orvane
} // namespace Vorna
