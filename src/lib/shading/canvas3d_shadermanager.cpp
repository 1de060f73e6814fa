#include "canvas3d_shadermanager.h"

#include "orvane_log.h"

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

namespace Vorna {
namespace Orvane {

bool readShaderFile(const QString& path, QByteArray& out)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCDebug(orvane) << "Cannot open" << path;
        return false;
    }
    out = file.readAll();
    file.close();
    return true;
}

ShaderManager* ShaderManager::instance()
{
    static ShaderManager* catalogue = [] {
        auto* manager = new ShaderManager;
        manager->init();
        return manager;
    }();
    return catalogue;
}

void ShaderManager::init()
{
    QMutexLocker locker(&m_mutex);
    // Irregular rows (shared stages, a missing material set) are deliberate; keep them as they are.
    m_shaderFiles = {
        {g_pointProgramStr, {":/point/points.vert", ":/point/points.frag"}},
        {g_pointColorProgramStr, {":/point/points_color.vert", ":/point/points_color.frag"}},
        {g_pointZephraProgramStr, {":/point/point_zephra.vert", ":/point/point_zephra.frag"}},
        {g_editPointProgramStr, {":/point/edit_points.vert", ":/point/edit_points.frag"}},
        {g_editPointMaterialProgramStr,
         {":/point/edit_points_material.vert", ":/point/edit_points.frag"}},
        {g_editPointColorProgramStr,
         {":/point/edit_points_color.vert", ":/point/edit_points_color.frag"}},
        {g_editPointColorMaterialProgramStr,
         {":/point/edit_points_color_material.vert", ":/point/edit_points_color.frag"}},
        {g_editPointTextureProgramStr,
         {":/point/edit_points_texture.vert", ":/point/edit_points_texture.frag"}},
        {g_cutPointProgramStr, {":/point/cut_points.vert", ":/point/edit_points.frag"}},
        {g_cutPointMaterialProgramStr,
         {":/point/cut_points_material.vert", ":/point/edit_points_material.frag"}},
        {g_cutPointColorProgramStr,
         {":/point/cut_points_color.vert", ":/point/edit_points_color.frag"}},
        {g_cutPointColorMaterialProgramStr,
         {":/point/cut_points_color_material.vert", ":/point/edit_points_color.frag"}},
        {g_widthLineProgramStr,
         {":/line/widthLine.vert", ":/line/widthLine.geom", ":/line/widthLine.frag"}},
        {g_meshProgramStr, {":/mesh/basemesh.vert", ":/mesh/basemesh.frag"}},
        {g_meshDynamicLightProgramStr,
         {":/mesh/basemesh_dynamiclight.vert", ":/mesh/basemesh_dynamiclight.geom",
          ":/mesh/basemesh_dynamiclight.frag"}},
        {g_meshColorProgramStr, {":/mesh/basemesh_color.vert", ":/mesh/basemesh_color.frag"}},
        {g_meshColorMaterialProgramStr,
         {":/mesh/basemesh_color_material.vert", ":/mesh/basemesh_color_material.geom",
          ":/mesh/basemesh_color_material.frag"}},
        {g_meshTextureProgramStr,
         {":/mesh/texturemesh.vert", ":/mesh/texturemesh.frag", ":/mesh/texturemesh.geom"}},
        {g_meshTextureNoLightProgramStr,
         {":/mesh/texturemesh_nolight.vert", ":/mesh/texturemesh_nolight.frag"}},
        {g_meshFlatProgramStr,
         {":/mesh/basemesh_flat.vert", ":/mesh/basemesh_flat.frag", ":/mesh/basemesh_flat.geom"}},
        {g_meshTextureFlatProgramStr,
         {":/mesh/texturemesh_flat.vert", ":/mesh/texturemesh_flat.geom",
          ":/mesh/texturemesh_flat.frag"}},
        {g_meshThermodynamicProgramStr, {":/mesh/thermodynamic.vert", ":/mesh/thermodynamic.frag"}},
        {g_editMeshProgramStr, {":/mesh/edit_basemesh.vert", ":/mesh/edit_basemesh.frag"}},
        {g_editMeshMaterialProgramStr,
         {":/mesh/edit_basemesh.vert", ":/mesh/edit_basemesh.geom",
          ":/mesh/edit_basemesh_material.frag"}},
        {g_editMeshDynamicLightProgramStr,
         {":/mesh/edit_basemesh_dynamiclight.vert", ":/mesh/edit_basemesh_dynamiclight.geom",
          ":/mesh/edit_basemesh_dynamiclight.frag"}},
        {g_editMeshColorProgramStr,
         {":/mesh/edit_basemesh_color.vert", ":/mesh/edit_basemesh_color.frag"}},
        {g_editMeshColorMaterialProgramStr,
         {":/mesh/edit_basemesh_color_material.vert", ":/mesh/edit_basemesh_color_material.geom",
          ":/mesh/edit_basemesh_color_material.frag"}},
        {g_meshColorCutTransProgramStr,
         {":/mesh/basemesh_color_cuttrans.vert", ":/mesh/basemesh_color_cuttrans.geom",
          ":/mesh/basemesh_color_cuttrans.frag"}},
        {g_editMeshTextureProgramStr,
         {":/mesh/edit_texturemesh.vert", ":/mesh/edit_texturemesh.frag"}},
        {g_editMeshDoubleTextureProgramStr,
         {":/mesh/edit_doubletexturemesh.vert", ":/mesh/edit_doubletexturemesh.geom",
          ":/mesh/edit_doubletexturemesh.frag"}},
        {g_editMeshDoubleTextureRedBlueProgramStr,
         {":/mesh/edit_doubletexturemesh.vert", ":/mesh/edit_doubletexturemesh.geom",
          ":/mesh/edit_doubletextureredblue.frag"}},
        {g_editMeshHeatMapProgramStr,
         {":/mesh/edit_basemesh_heatmap.vert", ":/mesh/edit_basemesh_heatmap.geom",
          ":/mesh/edit_basemesh_heatmap.frag"}},
        {g_cutMeshProgramStr, {":/mesh/cut_basemesh.vert", ":/mesh/cut_basemesh.frag"}},
        {g_cutMeshMaterialProgramStr,
         {":/mesh/cut_basemesh.vert", ":/mesh/cut_basemesh_material.frag"}},
        {g_cutMeshDynamicLightProgramStr,
         {":/mesh/cut_basemesh_dynamiclight.vert", ":/mesh/cut_basemesh_dynamiclight.geom",
          ":/mesh/cut_basemesh_dynamiclight.frag"}},
        {g_cutMeshColorProgramStr,
         {":/mesh/cut_basemesh_color.vert", ":/mesh/cut_basemesh_color.frag"}},
        {g_cutMeshColorMaterialProgramStr,
         {":/mesh/cut_basemesh_color_material.vert", ":/mesh/cut_basemesh_color_material.geom",
          ":/mesh/cut_basemesh_color_material.frag"}},
        {g_cutMeshTextureProgramStr,
         {":/mesh/cut_texturemesh.vert", ":/mesh/cut_texturemesh.frag"}},
        {g_sphereEditMeshProgramStr,
         {":/mesh/sphere_edit_basemesh.vert", ":/mesh/edit_basemesh.geom",
          ":/mesh/edit_basemesh.frag"}},
        {g_sphereEditMeshDynamicLightProgramStr,
         {":/mesh/sphere_edit_basemesh_dynamiclight.vert", ":/mesh/edit_basemesh_dynamiclight.geom",
          ":/mesh/edit_basemesh_dynamiclight.frag"}},
        {g_sphereEditMeshColorProgramStr,
         {":/mesh/sphere_edit_basemesh_color.vert", ":/mesh/edit_basemesh_color.geom",
          ":/mesh/edit_basemesh_color.frag"}},
        {g_sphereEditMeshTextureProgramStr,
         {":/mesh/sphere_edit_texturemesh.vert", ":/mesh/edit_texturemesh.geom",
          ":/mesh/edit_texturemesh.frag"}},
        {g_meshCalibProgramStr,
         {":/mesh/mesh_calibrate.vert", ":/mesh/mesh_calibrate.geom",
          ":/mesh/mesh_calibrate.frag"}},
        {g_markerProgramStr,
         {":/marker/radiusmarker.vert", ":/marker/radiusmarker.geom",
          ":/marker/radiusmarker.frag"}},
        {g_markerNoGeomProgramStr,
         {":/marker/radiusmarker_nogeom.vert", ":/marker/radiusmarker_nogeom.frag"}},
        {g_encodedMarkerProgramStr, {":/marker/encodedmarker.vert", ":/marker/encodedmarker.frag"}},
        {g_commonModelOsgProgramStr,
         {":/mesh/common_model_osg.vert", ":/mesh/common_model_osg.frag"}},
        {g_meshHeatMapProgramStr, {":/mesh/basemesh_heatmap.vert", ":/mesh/basemesh_heatmap.frag"}},
        {g_increaseMeshProgramStr,
         {":/mesh/increaseMesh.vert", ":/mesh/increaseMesh.geom", ":/mesh/increaseMesh.frag"}},
        {g_increaseMeshMaterialProgramStr,
         {":/mesh/increaseMesh.vert", ":/mesh/increaseMesh.geom",
          ":/mesh/increaseMesh_material.frag"}},
        {g_superSamplingProgramStr, {":/mesh/super_sampling.vert", ":/mesh/super_sampling.frag"}},
        {g_transMeshProgramStr,
         {":/mesh/oit_pass0_basemesh.vert", ":/mesh/oit_pass0_basemesh.geom",
          ":/mesh/mboit_pass0_basemesh.frag"}},
        {g_transMeshTextureProgramStr,
         {":/mesh/oit_pass0_texturemesh.vert", ":/mesh/oit_pass0_texturemesh.geom",
          ":/mesh/mboit_pass0_texturemesh.frag"}},
        {g_mboitMeshProgramStr,
         {":/mesh/oit_pass0_texturemesh.vert", ":/mesh/oit_pass0_texturemesh.geom",
          ":/mesh/mboit_pass1.frag"}},
        {g_transSecondPassProgramStr, {":/mesh/mboit_pass2.vert", ":/mesh/mboit_pass2.frag"}},
        {g_metalComputeStr, {":/metal_shader/metal_compute.metal"}},
        {g_increPointMetalComputeStr, {":/metal_shader/incre_point.metal"}},
        {g_meshPBRBSDFProgramStr, {":/mesh/pbr_bsdf.vert", ":/mesh/pbr_bsdf.frag"}},
        {g_meshPBRSSSSProgramStr, {":/mesh/pbr_ssss.vert", ":/mesh/pbr_ssss.frag"}},
        {g_ssssMaskProgramStr, {":/mesh/pbr_ssss_mask.vert", ":/mesh/pbr_ssss_mask.frag"}},
        {g_shadowShadowMapProgramStr,
         {":/mesh/shadow_shadowmap.vert", ":/mesh/shadow_shadowmap.frag"}},
        {g_shadowPCSSProgramStr, {":/mesh/shadow_PCSS.vert", ":/mesh/shadow_PCSS.frag"}},
        {g_shadowShadowMaskProgramStr,
         {":/mesh/shadow_shadowmask.vert", ":/mesh/shadow_shadowmask.frag"}},
        {g_shadowRectProgramStr, {":/mesh/shadow_rect.vert", ":/mesh/shadow_rect.frag"}},
    };
}

osg::Program* ShaderManager::getShader(const std::string& name)
{
    QMutexLocker locker(&m_mutex);
    // The program table first, so that a program registered at run time wins over the files.
    auto linked = m_programs.find(name);
    if (linked != m_programs.end())
        return linked->second.get();

    auto row = m_shaderFiles.find(name);
    if (row == m_shaderFiles.end()) {
        qCDebug(orvane) << "getShader"
                        << "this shaderType undefine!";
        return nullptr;
    }
    osg::ref_ptr<osg::Program> program = linkShader(row->second);
    program->setName(name);
    m_programs[name] = program;
    return program.get();
}

bool ShaderManager::hasShader(const std::string& name)
{
    QMutexLocker locker(&m_mutex);
    return m_programs.find(name) != m_programs.end();
}

bool ShaderManager::registShader(const std::string& name,
                                 const std::map<osg::Shader::Type, QByteArray>& sources)
{
    QMutexLocker locker(&m_mutex);
    if (m_programs.find(name) != m_programs.end()) {
        qCCritical(orvane) << "Already existing shader with the same shader name";
        return false;
    }
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(name);
    m_programs[name] = program;
    for (const auto& source : sources)
        program->addShader(new osg::Shader(source.first, source.second.toStdString()));
    return true;
}

char* ShaderManager::getCharDataByMetalShader(const std::string& name)
{
    QMutexLocker locker(&m_mutex);
    auto row = m_shaderFiles.find(name);
    if (row == m_shaderFiles.end()) {
        qCDebug(orvane) << "getCharDataByMetalShader"
                        << "this shaderType undefine!";
        return nullptr;
    }
    // Resources never change: the first read stays, so earlier pointers remain valid.
    auto cached = m_metalSources.find(name);
    if (cached != m_metalSources.end())
        return cached->second.data();

    QByteArray text;
    for (const QString& path : row->second) {
        QByteArray data;
        readShaderFile(path, data);
        text = data;
    }
    return m_metalSources.emplace(name, text).first->second.data();
}

void ShaderManager::releaseGLObjects(osg::State* state)
{
    if (!state)
        return;
    QMutexLocker lock(&m_mutex);
    for (auto& program : m_programs)
        if (program.second)
            program.second->releaseGLObjects(state);
}

std::map<std::string, QStringList> ShaderManager::fileTable() const
{
    QMutexLocker locker(&m_mutex);
    return m_shaderFiles;
}

osg::Program* ShaderManager::linkShader(QStringList& files)
{
    osg::Program* program = new osg::Program;
    for (const QString& path : files) {
        // A missing file still gives its stage, with empty source: OpenGL reports it at first draw.
        QByteArray source;
        readShaderFile(path, source);

        const QString suffix = QFileInfo(path).suffix();
        const QChar kind = suffix.isEmpty() ? QChar() : suffix.at(0);
        osg::Shader::Type type = osg::Shader::UNDEFINED;
        if (kind == QLatin1Char('c'))
            type = osg::Shader::COMPUTE;
        else if (kind == QLatin1Char('f'))
            type = osg::Shader::FRAGMENT;
        else if (kind == QLatin1Char('g'))
            type = osg::Shader::GEOMETRY;
        else if (kind == QLatin1Char('v'))
            type = osg::Shader::VERTEX;

        if (type != osg::Shader::UNDEFINED)
            program->addShader(new osg::Shader(type, source.toStdString()));
        qCDebug(orvane) << "linkShader:" << path;
    }
    return program;
}

} // namespace Orvane
} // namespace Vorna
