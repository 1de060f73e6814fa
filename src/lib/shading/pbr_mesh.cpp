#include "canvas3d_drawable.h"
#include "orvane_log.h"

#include <osg/Geode>

namespace Vorna {
namespace Orvane {

namespace {

// The scanner's files mark a broken point with x of exactly 0.0.
void dropErrorPoints(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec2Array* texCoords)
{
    if (!vertices)
        return;
    for (size_t i = vertices->size(); i-- > 0;) {
        if ((*vertices)[i].x() != 0.0f)
            continue;
        qCDebug(orvane) << "parse model error: there has an error point.";
        vertices->erase(vertices->begin() + static_cast<std::ptrdiff_t>(i));
        if (normals && i < normals->size())
            normals->erase(normals->begin() + static_cast<std::ptrdiff_t>(i));
        if (texCoords && i < texCoords->size())
            texCoords->erase(texCoords->begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void addMap(osg::StateSet* ss, unsigned int unit, osg::Image* image, const char* sampler,
            const char* flag)
{
    if (!image) {
        ss->addUniform(new osg::Uniform(flag, false));
        return;
    }
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    ss->setTextureAttributeAndModes(unit, texture.get(), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform(sampler, static_cast<int>(unit)));
    ss->addUniform(new osg::Uniform(flag, true));
}

} // namespace

osg::ref_ptr<osg::MatrixTransform>
Mesh::createPBRTexMesh(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec2Array* texCoords)
{
    return createPBRTexMesh(vertices, normals, texCoords, nullptr, nullptr, nullptr);
}

osg::ref_ptr<osg::MatrixTransform>
Mesh::createPBRTexMesh(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec2Array* texCoords,
                       osg::Vec3iArray* faces, osg::Image* colorImage, osg::Image* normalImage)
{
    dropErrorPoints(vertices, normals, texCoords);

    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->setTexCoordArray(0, texCoords, osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(0, vertices, osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(1, normals, osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(3, texCoords, osg::Array::BIND_PER_VERTEX);

    if (faces) {
        osg::ref_ptr<osg::DrawElementsUInt> strip = new osg::DrawElementsUInt(GL_TRIANGLE_STRIP);
        for (const osg::Vec3i& face : *faces) {
            strip->push_back(static_cast<unsigned int>(face.x()));
            strip->push_back(static_cast<unsigned int>(face.y()));
            strip->push_back(static_cast<unsigned int>(face.z()));
        }
        geometry->addPrimitiveSet(strip.get());
    } else {
        geometry->addPrimitiveSet(new osg::DrawArrays(
            GL_TRIANGLES, 0, vertices ? static_cast<GLsizei>(vertices->size()) : 0));
    }
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setDataVariance(osg::Object::STATIC);

    osg::StateSet* ss = geometry->getOrCreateStateSet();
    addMap(ss, 0, colorImage, "colorMap", "colorMapExist");
    addMap(ss, 1, normalImage, "normalMap", "normalMapExist");

    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());
    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform;
    transform->addChild(geode.get());
    return transform;
}

} // namespace Orvane
} // namespace Vorna
