// The whole-cloud program's uniforms: its own, and those the scene graph holds for it.
#include "incre_point_geomtry_apple.h"

#include "canvas3d_shadermanager.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QOpenGLContext>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <osg/NodeVisitor>
#include <osg/State>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

// Scene-graph uniforms a parent may hold for the cloud: lights and the back colour switch.
bool isCloudUniformName(const std::string& name)
{
    static const char* const names[] = {"lightDirection",  "lightParam",       "light1Direction",
                                        "light1Param",     "light2Direction",  "light2Param",
                                        "light3Direction", "light3Param",      "light4Direction",
                                        "light4Param",     "lightBkDirection", "lightBkParam",
                                        "ubTexture",       "useBackColor"};
    for (const char* n : names)
        if (name == n)
            return true;
    return false;
}

} // namespace

void IncrePointGeometryApple::setWholePointCloudUniform(osg::RenderInfo& renderInfo)
{
    const DrawMatrices m = drawMatrices(renderInfo);
    GLShader& p = *m_drawProgram;
    p.setMat3("normalMatrix", m.normal);
    p.setMat4("modelMatrix", m.model);
    p.setMat4("modelViewMatrix", m.modelView);
    p.setMat4("projectMatrix", m.projection);
    m_frameViewProjection = m.modelView * m.projection;
    p.setMat4("modelViewProjectMatrix", m_frameViewProjection);
    p.setBool("hasColor", m_hasColor);
    p.setBool("showColorSpectrum", m_showColorSpectrum);
    if (m_frameRtTexture.image)
        p.setVec2("texFrameMatrixPicSize", static_cast<float>(m_frameRtTexture.image->s()),
                  static_cast<float>(m_frameRtTexture.image->t()));
    bool useClipPlane = false;
    if (getStateSet() && getStateSet()->getUniform("useClipPlane") &&
        getStateSet()->getUniform("useClipPlane")->get(useClipPlane))
        p.setBool("useClipPlane", useClipPlane);
    // Two samplers of different types may not share a unit: the frame table is on 0, the state
    // colours on 1, where the scene publishes them.
    p.setInt("texFrameMatrix", 0);
    p.setInt("colorIndex", 1);
    p.setBool("bRigidScan", m_bRigidScan);
    p.setBool("isCutPlaneExist", SceneFlags::rectCutPlaneExists());
    fetchOsgUniform(renderInfo);
}

bool IncrePointGeometryApple::fetchOsgUniform(osg::RenderInfo& renderInfo)
{
    osg::State* state = renderInfo.getState();
    if (!m_drawProgram) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "drawProgram is nullptr";
        return false;
    }
    if (!state) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "state is nullptr";
        return false;
    }
    if (!m_gl) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "glFun is nullptr";
        return false;
    }
    if (isPrintLog)
        qCDebug(orvane) << "fetchOsgUniform"
                        << "Begin";
    const GLuint program = m_drawProgram->getProgram();
    const osg::GLExtensions* extensions = state->get<osg::GLExtensions>();
    const bool cutPlane = SceneFlags::rectCutPlaneExists();
    int cutBits = 0;
    const auto apply = [&](const osg::Uniform* uniform) {
        if (!uniform)
            return;
        const std::string& name = uniform->getName();
        const GLint location = m_gl->glGetUniformLocation(program, name.c_str());
        if (isPrintLog)
            qCDebug(orvane).nospace()
                << "fetchUniform name: " << name.c_str() << ", loc: " << location;
        if (location >= 0)
            uniform->apply(extensions, location);
        if (!cutPlane)
            return;
        if (name == "direction" && uniform->get(m_cutPlaneInfo.direction))
            cutBits |= 1;
        else if (name == "center" && uniform->get(m_cutPlaneInfo.center))
            cutBits |= 2;
        else if (name == "selectIndex" && uniform->get(m_cutPlaneInfo.selectIndex))
            cutBits |= 4;
    };
    for (const auto& [name, stack] : state->getUniformMap())
        for (const auto& entry : stack.uniformVec)
            apply(entry.first);
    const auto applyListed = [&](const osg::StateSet* ss) {
        if (!ss)
            return;
        for (const auto& [name, pair] : ss->getUniformList())
            if (isCloudUniformName(name))
                apply(pair.first.get());
    };
    applyListed(getStateSet());
    if (getNumParents() == 1 && getParent(0))
        applyListed(getParent(0)->getStateSet());
    m_cutPlaneInfo.enabled = cutPlane && cutBits == 7;
    if (isPrintLog)
        qCDebug(orvane) << "fetchOsgUniform"
                        << "End";
    return true;
}

std::atomic<bool> IncrePointGeometryApple::isPrintLog{false};

void IncrePointGeometryApple::setWholePCDefaultUniform(osg::RenderInfo& renderInfo)
{
    for (const auto& variant : m_drawVariants)
        if (variant && variant->getProgram())
            setDefaultUniforms(*variant);
    // OSG caches the program it last applied: make it apply its own again.
    if (renderInfo.getState())
        renderInfo.getState()->setLastAppliedProgramObject(nullptr);
}

void IncrePointGeometryApple::setDefaultUniforms(GLShader& p)
{
    p.use();
    p.setBool("isCutPlaneExist", false);
    p.setFloat("selectIndex", 1.0f);
    p.setVec3("front", 0.05f, 0.695f, 1.0f);
    p.setVec3("back", 0.03f, 0.556f, 0.8f);
    p.setBool("useBackColor", true);
    p.setVec3("lightDirection", 0.0f, 0.0f, 1.0f);
    p.setVec4("lightParam", 0.5f, 0.5f, 0.15f, 128.0f);
    p.setVec3("light1Direction", 0.11162f, 0.66604f, 0.63302f);
    p.setVec4("light1Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light2Direction", -0.045f, -0.96593f, 0.25489f);
    p.setVec4("light2Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light3Direction", 0.93969f, 0.0f, -0.34202f);
    p.setVec4("light3Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light4Direction", -0.93969f, 0.0f, -0.34202f);
    p.setVec4("light4Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("lightBkDirection", 0.0f, 0.0f, 1.0f);
    p.setVec4("lightBkParam", 0.5f, 0.5f, 0.0f, 1.0f);
    p.setBool("specularSeparate", false);
    p.setBool("showColorSpectrum", true);
    p.setBool("hasColor", false);
    p.setBool("bRigidScan", false);
    p.setFloat("pointSize", 3.0f);
    p.setFloat("pointDis", 0.2f);
    p.setBool("useFixedSize", true);
    p.setInt("texFrameMatrix", 0);
    if (m_frameRtTexture.image)
        p.setVec2("texFrameMatrixPicSize", static_cast<float>(m_frameRtTexture.image->s()),
                  static_cast<float>(m_frameRtTexture.image->t()));
    p.cancel();
}

} // namespace Orvane
} // namespace Vorna
