#include "markerpoint.h"

#include "canvas3d_shadermanager.h"
#include "orvane_log.h"

#include <algorithm>
#include <cstring>
#include <osg/AutoTransform>
#include <osg/BufferObject>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/ValueObject>
#include <osgText/Text>

namespace Vorna {
namespace Orvane {

namespace {

// A single point has no extent of its own; the disc's radius gives it one for culling and fit.
class MarkerBoundCallback : public osg::Drawable::ComputeBoundingBoxCallback
{
public:
    osg::BoundingBox computeBound(const osg::Drawable& drawable) const override
    {
        osg::BoundingBox box;
        float radius = 0.0f;
        drawable.getUserValue("radius", radius);
        box.expandBy(osg::BoundingSphere(osg::Vec3(), radius));
        return box;
    }
};

bool isOpaque(const osg::Vec4f& c)
{
    return c.a() >= 1.0f;
}

} // namespace

osg::ref_ptr<osg::Geode> MarkerPoint::createMarkerPoint(const MarkerParam& param,
                                                        bool useGeometryShader)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setUserValue("radius", param.radius.x());
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::StateSet* ss = geometry->getOrCreateStateSet();
    ss->addUniform(new osg::Uniform("frontExternalColor", param.frontExternalColor));
    ss->addUniform(new osg::Uniform("frontInnerColor", param.frontInnerColor));
    ss->addUniform(new osg::Uniform("radius", param.radius));
    ss->addUniform(new osg::Uniform("normal", param.normal));
    ShaderManager* shaders = ShaderManager::instance();
    if (useGeometryShader) {
        vertices->push_back(osg::Vec3());
        geometry->setVertexArray(vertices);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 1));
        ss->addUniform(new osg::Uniform("backExternalColor", param.backExternalColor));
        ss->addUniform(new osg::Uniform("backInnerColor", param.backInnerColor));
        ss->setAttributeAndModes(shaders->getShader("marker"), osg::StateAttribute::ON);
    } else {
        const float r = param.radius.x();
        for (const osg::Vec3& p :
             {osg::Vec3(-r, -r, 0), osg::Vec3(r, -r, 0), osg::Vec3(-r, r, 0), osg::Vec3(r, r, 0)})
            vertices->push_back(p);
        geometry->setVertexArray(vertices);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, 0, 4));
        ss->setAttributeAndModes(shaders->getShader("marker_nogeom"), osg::StateAttribute::ON);
        ss->setMode(GL_PROGRAM_POINT_SIZE, osg::StateAttribute::OFF);
    }
    geometry->setComputeBoundingBoxCallback(new MarkerBoundCallback);
    if (!isOpaque(param.frontExternalColor) || !isOpaque(param.backExternalColor) ||
        !isOpaque(param.frontInnerColor) || !isOpaque(param.backInnerColor)) {
        ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    }
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

osg::ref_ptr<osg::UniformBufferBinding> EcodedPoint::createEcodedUBO(const EcodedPointParam& param)
{
    osg::ref_ptr<osg::UByteArray> bytes = new osg::UByteArray(kUboSize);
    std::fill(bytes->begin(), bytes->end(), 0);
    unsigned char* data = &(*bytes)[0];
    const float head[5] = {param.radius, param.innerRadiusRatio, param.medialRadiusRatio,
                           param.externalRadiusRatio, param.outermostRadiusRatio};
    std::memcpy(data, head, sizeof(head));
    const int count = int(std::min<size_t>(param.fragments.size(), kMaxFragments));
    std::memcpy(data + 20, &count, sizeof(count));
    for (int i = 0; i < count; ++i) {
        // std140: each array entry is padded to a vec4.
        const float entry[4] = {param.fragments[i].first, param.fragments[i].second, 0.0f, 0.0f};
        std::memcpy(data + 32 + 16 * i, entry, sizeof(entry));
    }
    osg::ref_ptr<osg::UniformBufferObject> ubo = new osg::UniformBufferObject;
    bytes->setBufferObject(ubo);
    return new osg::UniformBufferBinding(0, bytes.get(), 0, kUboSize);
}

osg::ref_ptr<osg::Group> EcodedPoint::createEcodedPoint(const EcodedPointParam& param)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(param.useVBO);
    geometry->setUseVertexArrayObject(param.useVBO);
    const float r = param.radius * param.outermostRadiusRatio;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(-r, -r, 0), osg::Vec3(r, -r, 0), osg::Vec3(-r, r, 0), osg::Vec3(r, r, 0)})
        vertices->push_back(p);
    geometry->setVertexAttribArray(0, vertices, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, 0, 4));
    // Attribute 0 alone gives no bound; the quad's corners do.
    geometry->setInitialBound(osg::BoundingBox(-r, -r, -r, r, r, r));
    osg::StateSet* ss = geometry->getOrCreateStateSet();
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    ss->setAttributeAndModes(createEcodedUBO(param), osg::StateAttribute::ON);
    ss->setAttributeAndModes(ShaderManager::instance()->getShader("marker_encoded"),
                             osg::StateAttribute::ON);

    osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    group->addChild(geode);
    if (!param.text.empty()) {
        osg::ref_ptr<osgText::Text> text = new osgText::Text;
        text->setName("text");
        text->setText(param.text);
        text->setColor(osg::Vec4(1, 1, 1, 1));
        text->setCharacterSize(param.radius * 0.5f);
        text->setAlignment(osgText::Text::CENTER_CENTER);
        osg::ref_ptr<osg::Geode> textGeode = new osg::Geode;
        textGeode->addDrawable(text);
        osg::ref_ptr<osg::MatrixTransform> mt = new osg::MatrixTransform;
        mt->addChild(textGeode);
        mt->setUpdateCallback(new UpdateEcodedPointTextMatrixCallback(r));
        osg::ref_ptr<osg::AutoTransform> turn = new osg::AutoTransform;
        turn->setAutoRotateMode(osg::AutoTransform::ROTATE_TO_SCREEN);
        turn->addChild(mt);
        group->addChild(turn);
        initEcodeMatrix(group, r, nullptr);
    }
    return group;
}

namespace {

osg::MatrixTransform* labelTransform(osg::Group* group)
{
    for (unsigned i = 0; group && i < group->getNumChildren(); ++i) {
        auto* turn = dynamic_cast<osg::AutoTransform*>(group->getChild(i));
        if (turn && turn->getNumChildren() > 0)
            return dynamic_cast<osg::MatrixTransform*>(turn->getChild(0));
    }
    return nullptr;
}

// The label's place in the screen-turned frame: `offset` from the centre, away from the view's
// centre, straight up when the disc sits on it.
osg::Matrix labelMatrix(const osg::Matrix& localToWorld, const osg::Matrix& view, float offset)
{
    const osg::Vec3d eyeCentre = osg::Vec3d() * localToWorld * view;
    osg::Vec3d dir(eyeCentre.x(), eyeCentre.y(), 0.0);
    const double height = osg::minimum(dir.length(), double(offset));
    if (height <= 1e-6 * offset || dir.normalize() == 0.0)
        dir = osg::Vec3d(0, 1, 0);
    return osg::Matrix::translate(dir * offset);
}

} // namespace

void EcodedPoint::initEcodeMatrix(osg::ref_ptr<osg::Group> group, float offset, osg::Camera* camera)
{
    osg::MatrixTransform* mt = labelTransform(group.get());
    if (!mt)
        return;
    if (!camera) {
        mt->setMatrix(osg::Matrix::translate(0, offset, 0));
        return;
    }
    const osg::NodePathList paths = group->getParentalNodePaths();
    const osg::Matrix localToWorld =
        paths.empty() ? osg::Matrix::identity() : osg::computeLocalToWorld(paths.front());
    mt->setMatrix(labelMatrix(localToWorld, camera->getViewMatrix(), offset));
}

bool UpdateEcodedPointTextMatrixCallback::needEcodeLog = false;

void UpdateEcodedPointTextMatrixCallback::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    auto* mt = dynamic_cast<osg::MatrixTransform*>(node);
    if (mt && nv) {
        osg::NodePath path = nv->getNodePath();
        osg::Camera* camera = nullptr;
        size_t start = 0;
        for (size_t i = 0; i < path.size(); ++i) {
            if (auto* c = dynamic_cast<osg::Camera*>(path[i])) {
                camera = c;
                start = i + 1;
            }
        }
        // The update traversal starts below the view's camera, which holds the scene as a child.
        for (osg::Node* n = path.empty() ? nullptr : path.front(); !camera && n;) {
            n = n->getNumParents() > 0 ? n->getParent(0) : nullptr;
            camera = n ? n->asCamera() : nullptr;
        }
        // The disc's frame: above the screen-turned transform and the label's own.
        osg::NodePath toDisc(path.begin() + start, path.end());
        while (!toDisc.empty() &&
               (toDisc.back() == mt || dynamic_cast<osg::AutoTransform*>(toDisc.back())))
            toDisc.pop_back();
        if (camera) {
            const osg::Matrix world = osg::computeLocalToWorld(toDisc);
            mt->setMatrix(labelMatrix(world, camera->getViewMatrix(), m_offset));
            if (needEcodeLog) {
                auto* geode = mt->getNumChildren() ? mt->getChild(0)->asGeode() : nullptr;
                auto* text = geode && geode->getNumDrawables()
                                 ? dynamic_cast<osgText::Text*>(geode->getDrawable(0))
                                 : nullptr;
                const osg::Vec3d t = mt->getMatrix().getTrans();
                const double height = t.length();
                qCDebug(orvane) << "updateMatCb, txt:"
                                << (text ? QString::fromStdString(
                                               text->getText().createUTF8EncodedString())
                                         : QString())
                                << "mt:" << t.x() << t.y() << t.z() << ", hei:" << height
                                << ", m_offset:" << m_offset << ", height: " << height
                                << ", wolrdMat:" << world.getTrans().x() << world.getTrans().y()
                                << world.getTrans().z();
            }
        }
    }
    traverse(node, nv);
}

} // namespace Orvane
} // namespace Vorna
