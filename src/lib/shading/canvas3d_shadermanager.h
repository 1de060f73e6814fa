#pragma once

#include <QByteArray>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <map>
#include <osg/Program>
#include <osg/Shader>
#include <osg/ref_ptr>
#include <string>

namespace Vorna {
namespace Orvane {

// Program names, what callers pass to ShaderManager::getShader. File-static: each source that
// includes this header has its own copy, so no definition needs a home.
static const std::string g_pointProgramStr = "point";
static const std::string g_pointColorProgramStr = "pointcolor";
static const std::string g_pointZephraProgramStr = "pointzephra";
static const std::string g_editPointProgramStr = "edit_point";
static const std::string g_editPointMaterialProgramStr = "edit_point_material";
static const std::string g_editPointColorProgramStr = "edit_pointcolor";
static const std::string g_editPointColorMaterialProgramStr = "edit_pointcolor_material";
static const std::string g_editPointTextureProgramStr = "edit_point_texture";
static const std::string g_cutPointProgramStr = "cut_point";
static const std::string g_cutPointMaterialProgramStr = "cut_point_material";
static const std::string g_cutPointColorProgramStr = "cut_pointcolor";
static const std::string g_cutPointColorMaterialProgramStr = "cut_pointcolor_material";
static const std::string g_widthLineProgramStr = "widthLine";
static const std::string g_meshProgramStr = "mesh";
static const std::string g_meshDynamicLightProgramStr = "mesh_dynamiclight";
static const std::string g_meshColorProgramStr = "meshcolor";
static const std::string g_meshColorMaterialProgramStr = "meshcolor_material";
static const std::string g_meshTextureProgramStr = "texturemesh";
static const std::string g_meshTextureNoLightProgramStr = "texturemesh_nolight";
static const std::string g_meshFlatProgramStr = "mesh_flat";
static const std::string g_meshTextureFlatProgramStr = "texturemesh_flat";
static const std::string g_meshThermodynamicProgramStr = "thermodynamic";
static const std::string g_editMeshProgramStr = "editmesh";
static const std::string g_editMeshMaterialProgramStr = "editmesh_material";
static const std::string g_editMeshDynamicLightProgramStr = "editmesh_dynamiclight";
static const std::string g_editMeshColorProgramStr = "editmeshcolor";
static const std::string g_editMeshColorMaterialProgramStr = "editmeshcolor_material";
static const std::string g_meshColorCutTransProgramStr = "editmeshcolor_cuttrans";
static const std::string g_editMeshTextureProgramStr = "edittexturemesh";
static const std::string g_editMeshDoubleTextureProgramStr = "editdoubletexturemesh";
static const std::string g_editMeshDoubleTextureRedBlueProgramStr = "editdoubletexturemeshredblue";
static const std::string g_editMeshHeatMapProgramStr = "editmeshheatmap";
static const std::string g_cutMeshProgramStr = "cut_mesh";
static const std::string g_cutMeshMaterialProgramStr = "cut_mesh_material";
static const std::string g_cutMeshDynamicLightProgramStr = "cut_mesh_dynamiclight";
static const std::string g_cutMeshColorProgramStr = "cut_meshcolor";
static const std::string g_cutMeshColorMaterialProgramStr = "cut_meshcolor_material";
static const std::string g_cutMeshTextureProgramStr = "cut_texturemesh";
static const std::string g_sphereEditMeshProgramStr = "sphere_editmesh";
static const std::string g_sphereEditMeshDynamicLightProgramStr = "sphere_editmesh_dynamiclight";
static const std::string g_sphereEditMeshColorProgramStr = "sphere_editmeshcolor";
static const std::string g_sphereEditMeshTextureProgramStr = "sphere_edittexturemesh";
static const std::string g_meshCalibProgramStr = "mesh_calibrate";
static const std::string g_markerProgramStr = "marker";
static const std::string g_markerNoGeomProgramStr = "marker_nogeom";
static const std::string g_encodedMarkerProgramStr = "marker_encoded";
static const std::string g_commonModelOsgProgramStr = "common_model_osg";
static const std::string g_meshHeatMapProgramStr = "mesh_heatmap";
static const std::string g_increaseMeshProgramStr = "increaseMesh";
static const std::string g_increaseMeshMaterialProgramStr = "increaseMesh_material";
static const std::string g_superSamplingProgramStr = "super_sampling";
static const std::string g_transMeshProgramStr = "trans_mesh";
static const std::string g_transMeshTextureProgramStr = "trans_texturemesh";
static const std::string g_mboitMeshProgramStr = "mboit_pass1";
static const std::string g_transSecondPassProgramStr = "oit_second_pass";
static const std::string g_metalComputeStr = "metal_compute";
static const std::string g_increPointMetalComputeStr = "incre_point_metal_compute";
static const std::string g_meshPBRBSDFProgramStr = "pbr_bsdf";
static const std::string g_meshPBRSSSSProgramStr = "pbr_ssss";
static const std::string g_ssssMaskProgramStr = "ssss_mask";
static const std::string g_shadowShadowMapProgramStr = "shadow_shadowmap";
static const std::string g_shadowPCSSProgramStr = "shadow_PCSS";
static const std::string g_shadowShadowMaskProgramStr = "shadow_shadowmask";
static const std::string g_shadowRectProgramStr = "shadow_rect";

// Names without files: only a program registered at run time answers to them.
static const std::string g_incpointProgramStr = "incpoint";
static const std::string g_meshColorFlatProgramStr = "meshcolor_flat";
static const std::string g_transMeshColorProgramStr = "trans_meshcolor";
static const std::string g_editTransMeshColorProgramStr = "edit_trans_meshcolor";

// Reads a whole file or resource into out. On failure logs "Cannot open" and leaves out as it was.
bool readShaderFile(const QString& path, QByteArray& out);

// The one catalogue of programs: a fixed table from program name to resource files, linked on
// first request and shared by every caller of the same name. Any thread may call it.
class ShaderManager
{
public:
    // The process-wide catalogue, filled on first use; it lives as long as the process, as the
    // façade that hands it out does.
    static ShaderManager* instance();

    ShaderManager() = default;
    ShaderManager(const ShaderManager&) = delete;
    ShaderManager& operator=(const ShaderManager&) = delete;

    // Fills the file table; links nothing.
    void init();

    osg::Program* getShader(const std::string& name);
    // True only for programs already linked or registered, not for names merely in the table.
    bool hasShader(const std::string& name);
    bool registShader(const std::string& name,
                      const std::map<osg::Shader::Type, QByteArray>& sources);
    // Text of the last file of the row; owned by the manager and valid while it lives.
    char* getCharDataByMetalShader(const std::string& name);

    // Forgets the programs' objects of the context behind `state`, which is about to go: a later
    // context may get the same id and must link afresh. Call with that context current.
    void releaseGLObjects(osg::State* state);

    // Copy of the name-to-files table, for tools and tests that walk the whole catalogue.
    std::map<std::string, QStringList> fileTable() const;

protected:
    // Expects m_mutex held: the mutex is not recursive.
    osg::Program* linkShader(QStringList& files);

private:
    mutable QMutex m_mutex;
    std::map<std::string, QStringList> m_shaderFiles;
    std::map<std::string, osg::ref_ptr<osg::Program>> m_programs;
    // Keeps the text handed out by getCharDataByMetalShader alive after the call.
    std::map<std::string, QByteArray> m_metalSources;
};

} // namespace Orvane
} // namespace Vorna
