#include "builtin_scene.h"

#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "orvane_singleton.h"

#include <cmath>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

osg::Node* createBuiltinMesh(int rings, int sides)
{
    constexpr float kMajor = 1.0f, kMinor = 0.38f;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array;
    for (int r = 0; r <= rings; ++r) {
        const float u = 2.0f * osg::PIf * r / rings;
        for (int s = 0; s <= sides; ++s) {
            const float v = 2.0f * osg::PIf * s / sides;
            const osg::Vec3f n(std::cos(u) * std::cos(v), std::sin(u) * std::cos(v), std::sin(v));
            const osg::Vec3f centre(std::cos(u) * kMajor, std::sin(u) * kMajor, 0.0f);
            vertices->push_back(centre + n * kMinor);
            normals->push_back(n);
            // Warm on the outside, cooler towards the hole: the shading does the rest.
            const float outside = 0.5f + 0.5f * std::cos(v);
            colors->push_back(
                osg::Vec3f(0.55f + 0.35f * outside, 0.45f + 0.2f * outside, 0.6f - 0.3f * outside));
        }
    }
    osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (int r = 0; r < rings; ++r) {
        for (int s = 0; s < sides; ++s) {
            const unsigned a = r * (sides + 1) + s, b = a + sides + 1;
            for (unsigned index : {a, b, a + 1, a + 1, b, b + 1})
                triangles->push_back(index);
        }
    }
    osg::MatrixTransform* transform =
        Vorna::Orvane::Mesh::create(vertices.get(), normals.get(), colors.get(), triangles.get());
    if (!transform)
        return nullptr;
    transform->getOrCreateStateSet()->setAttributeAndModes(
        Vorna::Orvane::OrvaneSingleton::instance()->getShaderMgr()->getShader("editmeshcolor"),
        osg::StateAttribute::ON);
    transform->setName("builtin torus");
    // Tilted towards the default home view, which looks along +y.
    transform->setMatrix(osg::Matrix::rotate(osg::DegreesToRadians(55.0), osg::X_AXIS));
    return transform;
}
