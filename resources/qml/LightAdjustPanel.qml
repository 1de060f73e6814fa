import QtQuick 2.15

// Ambient, diffuse, specular and shininess of each light, starting at the shaders' defaults.
Column {
    id: root
    spacing: 4
    property var lights: [
        { index: 0, name: "Main light", param: [0.5, 0.5, 0.15, 128.0] },
        { index: 1, name: "Light 1", param: [0.0, 0.0, 0.0, 1.0] },
        { index: 2, name: "Light 2", param: [0.0, 0.0, 0.0, 1.0] },
        { index: 3, name: "Light 3", param: [0.0, 0.0, 0.0, 1.0] },
        { index: 4, name: "Light 4", param: [0.0, 0.0, 0.0, 1.0] },
        { index: -1, name: "Back light", param: [0.5, 0.5, 0.0, 1.0] }
    ]

    // Back to the defaults, without sending them: the caller resets the scene itself.
    function restore() {
        for (var i = 0; i < repeater.count; ++i)
            repeater.itemAt(i).restore()
    }

    Text {
        text: "Lights"
        font.pixelSize: 15
        font.bold: true
        color: "#202020"
    }

    Repeater {
        id: repeater
        model: root.lights
        Column {
            id: light
            property int lightIndex: modelData.index
            property string key: lightIndex < 0 ? "lightBk" : "light" + lightIndex
            function send() {
                $DbgRender.setLightParam(amb.value, diff.value, specularSlider.value, shin.value, lightIndex)
            }
            function restore() {
                amb.restore(modelData.param[0])
                diff.restore(modelData.param[1])
                specularSlider.restore(modelData.param[2])
                shin.restore(modelData.param[3])
            }
            Text {
                text: modelData.name
                font.pixelSize: 13
                font.bold: true
                color: "#303030"
            }
            AdjustValue {
                id: amb
                objectName: light.key + "_amb"
                label: "ambient"
                value: modelData.param[0]
                onEdited: light.send()
            }
            AdjustValue {
                id: diff
                objectName: light.key + "_diff"
                label: "diffuse"
                value: modelData.param[1]
                onEdited: light.send()
            }
            AdjustValue {
                id: specularSlider
                objectName: light.key + "_spec"
                label: "specular"
                value: modelData.param[2]
                onEdited: light.send()
            }
            AdjustValue {
                id: shin
                objectName: light.key + "_shininess"
                label: "shininess"
                value: modelData.param[3]
                from: 1
                to: 256
                decimals: 0
                onEdited: light.send()
            }
        }
    }
}
