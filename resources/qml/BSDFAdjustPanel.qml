import QtQuick 2.15

// Surface colours and material of the meshes, the scene-wide switches and the physically based
// values of mesh 0.
Column {
    id: root
    spacing: 4

    function restore() {
        front.restore(Qt.vector3d(0.05, 0.695, 1.0))
        back.restore(Qt.vector3d(0.9, 0.85, 0.44))
    }

    Text {
        text: "Surface"
        font.pixelSize: 15
        font.bold: true
        color: "#202020"
    }
    AdjustVec3 {
        id: front
        objectName: "front"
        label: "Front colour"
        names: ["red", "green", "blue"]
        value: Qt.vector3d(0.05, 0.695, 1.0)
        onEdited: $DbgRender.setFrontColor(Qt.rgba(value.x, value.y, value.z, 1))
    }
    AdjustVec3 {
        id: back
        objectName: "back"
        label: "Back colour"
        names: ["red", "green", "blue"]
        value: Qt.vector3d(0.9, 0.85, 0.44)
        onEdited: $DbgRender.setBackColor(Qt.rgba(value.x, value.y, value.z, 1))
    }
    AdjustValue { objectName: "alpha"; label: "alpha"; value: 1; onEdited: $DbgRender.setAlpha(value) }
    AdjustValue { objectName: "gamma"; label: "gamma"; value: 1; to: 3; onEdited: $DbgRender.setGamma(value) }
    AdjustValue { objectName: "brightness"; label: "brightness"; value: 0; from: -1; onEdited: $DbgRender.setBrightness(value) }
    AdjustValue { objectName: "contrast"; label: "contrast"; value: 1; to: 3; onEdited: $DbgRender.setContrast(value) }
    AdjustValue { objectName: "diffBase"; label: "diffuse base"; value: 0.5; onEdited: $DbgRender.setContrastDynamicLight(value) }
    AdjustValue { objectName: "objSpecular"; label: "specular"; value: 0.325; onEdited: $DbgRender.setObjSpecular(value) }
    AdjustValue { objectName: "objShininess"; label: "shininess"; value: 9; from: 1; to: 128; decimals: 0; onEdited: $DbgRender.setObjShininess(value) }
    AdjustValue { objectName: "backSelectedFactor"; label: "back selected"; value: 0.5; onEdited: $DbgRender.setBackSelectedFactor(value) }
    AdjustValue { objectName: "planeOffset"; label: "cut offset"; value: 0; from: -1; onEdited: $DbgRender.setCutTransPlaneOffset(value) }
    // The blur's reach goes as 1 / width: from eight times the default down to an eighth.
    AdjustValue { objectName: "sssWidth"; label: "sss width"; value: 0.0125; from: 0.0016; to: 0.1; decimals: 4; onEdited: $DbgRender.setSSSWidth(value) }
    AdjustValue { objectName: "shadowStrength"; label: "shadow"; value: 0.5; onEdited: $DbgRender.setShadowStrength(value) }
    AdjustValue { objectName: "flatNormal"; label: "flat normals"; toggle: true; onEdited: $DbgRender.enableFlatNormal(value !== 0) }
    AdjustValue { objectName: "transparent"; label: "transparent"; toggle: true; onEdited: $DbgRender.enableTransparent(value !== 0) }
    AdjustValue { objectName: "viewDatum"; label: "view datum"; toggle: true; onEdited: $DbgRender.enableViewDatum(value !== 0) }

    Text {
        text: "PBR mesh 0"
        font.pixelSize: 13
        font.bold: true
        color: "#303030"
    }
    AdjustValue { label: "subsurface"; onEdited: $DbgRender.setSubsurface(value, 0) }
    AdjustValue { label: "anisotropic"; onEdited: $DbgRender.setAnisotropic(value, 0) }
    AdjustValue { label: "specular"; value: 0.5; onEdited: $DbgRender.setSpecular(value, 0) }
    AdjustValue { label: "metallic"; onEdited: $DbgRender.setMetallic(value, 0) }
    AdjustValue { label: "brightness"; value: 1; to: 3; onEdited: $DbgRender.setPBRBrightness(value, 0) }
    AdjustValue { label: "roughness"; value: 0.5; onEdited: $DbgRender.setRoughness(value, 0) }
    AdjustValue { label: "clearcoat"; onEdited: $DbgRender.setClearcoat(value, 0) }
}
