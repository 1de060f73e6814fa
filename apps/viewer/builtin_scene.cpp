#include "builtin_scene.h"

#include <cmath>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

osg::Node* createBuiltinMesh(int rings, int sides)
{
    constexpr float kMajor = 1.0f, kMinor = 0.38f;
    const osg::Vec3f light =
        osg::Vec3f(0.35f, 0.45f, 0.82f) / osg::Vec3f(0.35f, 0.45f, 0.82f).length();
    const osg::Vec4f base(0.86f, 0.62f, 0.32f, 1.0f);

    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    auto* colors = new osg::Vec4Array;
    for (int r = 0; r <= rings; ++r) {
        const float u = 2.0f * osg::PIf * r / rings;
        for (int s = 0; s <= sides; ++s) {
            const float v = 2.0f * osg::PIf * s / sides;
            const osg::Vec3f n(std::cos(u) * std::cos(v), std::sin(u) * std::cos(v), std::sin(v));
            const osg::Vec3f centre(std::cos(u) * kMajor, std::sin(u) * kMajor, 0.0f);
            vertices->push_back(centre + n * kMinor);
            normals->push_back(n);
            const float lit = 0.25f + 0.75f * std::max(0.0f, n * light);
            colors->push_back(osg::Vec4f(base.r() * lit, base.g() * lit, base.b() * lit, 1.0f));
        }
    }
    auto* triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (int r = 0; r < rings; ++r) {
        for (int s = 0; s < sides; ++s) {
            const unsigned a = r * (sides + 1) + s, b = a + sides + 1;
            for (unsigned index : {a, b, a + 1, a + 1, b, b + 1})
                triangles->push_back(index);
        }
    }
    auto* geometry = new osg::Geometry;
    // Inside QtQuick every geometry needs its own vertex array object.
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->setColorArray(colors, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(triangles);

    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    auto* transform = new osg::MatrixTransform;
    transform->setName("builtin torus");
    // Tilted towards the default home view, which looks along +y.
    transform->setMatrix(osg::Matrix::rotate(osg::DegreesToRadians(55.0), osg::X_AXIS));
    transform->addChild(geode);
    return transform;
}
