#include "screen_pass.h"

#include "gl_functions.h"
#include "invalid_bounds.h"
#include "orvane_log.h"
#include "render_info.h"

#include <OpenThreads/Mutex>
#include <OpenThreads/ScopedLock>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_4_1_Core>
#include <map>
#include <osg/Depth>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {
namespace ScreenPass {

namespace {

const char* const g_rectVertex = R"(#version 410 core
layout(location = 0) in vec3 vertex;
layout(location = 1) in vec2 vTexCoord;
out vec2 texCoord;
void main()
{
    texCoord = vTexCoord;
    gl_Position = vec4(vertex, 1.0);
}
)";

} // namespace

osg::Program* passProgram(const std::string& name, const char* fragment)
{
    static OpenThreads::Mutex mutex;
    static std::map<std::string, osg::ref_ptr<osg::Program>> programs;
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(mutex);
    osg::ref_ptr<osg::Program>& program = programs[name];
    if (!program) {
        program = new osg::Program;
        program->setName(name);
        program->addShader(new osg::Shader(osg::Shader::VERTEX, g_rectVertex));
        program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragment));
    }
    return program.get();
}

osg::ref_ptr<osg::Geode> createPassNode(const std::string& name, osg::Program* program,
                                        osg::Drawable::DrawCallback* callback)
{
    osg::ref_ptr<osg::Geometry> rect = createRect(program);
    rect->setDrawCallback(callback);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName(name);
    geode->addDrawable(rect.get());
    return geode;
}

osg::ref_ptr<osg::Geometry> createRect(osg::Program* program)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3(-1.0f, 1.0f, 0.0f));
    vertices->push_back(osg::Vec3(1.0f, 1.0f, 0.0f));
    vertices->push_back(osg::Vec3(1.0f, -1.0f, 0.0f));
    vertices->push_back(osg::Vec3(-1.0f, -1.0f, 0.0f));
    osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;
    texCoords->push_back(osg::Vec2(0.0f, 1.0f));
    texCoords->push_back(osg::Vec2(1.0f, 1.0f));
    texCoords->push_back(osg::Vec2(1.0f, 0.0f));
    texCoords->push_back(osg::Vec2(0.0f, 0.0f));
    geometry->setVertexAttribArray(0, vertices.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(1, texCoords.get(), osg::Array::BIND_PER_VERTEX);
    osg::ref_ptr<osg::DrawElementsUShort> triangles = new osg::DrawElementsUShort(GL_TRIANGLES);
    for (unsigned short index : {0, 1, 2, 0, 2, 3})
        triangles->push_back(index);
    geometry->addPrimitiveSet(triangles.get());
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);

    osg::StateSet* ss = geometry->getOrCreateStateSet();
    ss->setAttributeAndModes(program, osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("tex", 0));
    ss->setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false),
                             osg::StateAttribute::ON);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    // Neither part of a fit nor culled: the quad is the whole screen whatever the camera sees.
    geometry->setComputeBoundingBoxCallback(new InvalidComputeBoundingBox);
    geometry->setCullingActive(false);
    return geometry;
}

GLuint fboTexture(osg::RenderInfo& renderInfo)
{
    auto* view = dynamic_cast<osgViewer::View*>(renderInfo.getView());
    if (!view) {
        qCWarning(orvane) << "can't find osgViewer::View";
        return 0;
    }
    osgViewer::ViewerBase* viewerBase = view->getViewerBase();
    if (!viewerBase) {
        qCWarning(orvane) << "getViewerBase() return nullptr";
        return 0;
    }
    auto* info = dynamic_cast<RenderInfo*>(viewerBase->getUserData());
    if (!info) {
        qCWarning(orvane) << "user data isn't RenderInfo";
        return 0;
    }
    if (!info->FBO)
        return 0;
    // A multisample texture can't be read through a sampler2D.
    if (info->FBO->format().samples() >= 1) {
        qCWarning(orvane) << "MSAA enabled, so return 0";
        return 0;
    }
    return info->FBO->texture();
}

void drawOverFramebuffer(osg::RenderInfo& renderInfo, const osg::Drawable* drawable,
                         const std::function<GLuint()>& fboColour,
                         osg::ref_ptr<osg::Texture2D>& copy, const char* failedLine)
{
    QOpenGLFunctions_4_1_Core* gl = currentGlFunctions();
    if (!gl) {
        qCWarning(orvane) << "QOpenGLFunc not support in fxaanode";
        return;
    }
    const GLuint texture = fboColour();
    if (texture == 0) {
        qCWarning(orvane) << "can't find fbo's color texture";
        return;
    }
    gl->glFlush();
    GLint oldBinding = 0;
    gl->glGetIntegerv(GL_TEXTURE_BINDING_2D, &oldBinding);
    gl->glActiveTexture(GL_TEXTURE0);

    // Sampling the texture that is being drawn into is a feedback loop whose result depends on
    // the driver; a copy of the framebuffer at the size of its colour texture is read instead.
    GLint width = 0;
    GLint height = 0;
    gl->glBindTexture(GL_TEXTURE_2D, texture);
    gl->glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    gl->glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    if (!copy) {
        copy = new osg::Texture2D;
        copy->setInternalFormat(GL_RGBA8);
        copy->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
        copy->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
        copy->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
        copy->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    }
    if (width > 0 && height > 0) {
        // Reuses the copy while the size stays, and leaves it bound on unit 0.
        copy->copyTexImage2D(*renderInfo.getState(), 0, 0, width, height);
    }
    // Without a copy the pass reads the framebuffer's own texture, as drivers mostly allow.
    if (width <= 0 || height <= 0 || gl->glGetError() != GL_NO_ERROR)
        gl->glBindTexture(GL_TEXTURE_2D, texture);

    drawable->drawImplementation(renderInfo);

    if (gl->glGetError() != GL_NO_ERROR)
        qCWarning(orvane) << failedLine;
    gl->glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(oldBinding));
}

} // namespace ScreenPass
} // namespace Orvane
} // namespace Vorna
