import QtQuick 2.15

// Point size and the blue-point emphasis of the point programs, by uniform name.
Column {
    id: root
    spacing: 4

    function restore() {
        for (var i = 0; i < values.count; ++i)
            values.itemAt(i).restore(values.model[i].init)
    }

    Text {
        text: "Points"
        font.pixelSize: 15
        font.bold: true
        color: "#202020"
    }

    Repeater {
        id: values
        model: [
            { name: "pointSize", init: 3.0, from: 1, to: 20, toggle: false },
            { name: "ufPointSizeVariable", init: 0.2, from: 0, to: 1, toggle: false },
            { name: "ufMaxPointSize", init: 100.0, from: 1, to: 200, toggle: false },
            { name: "ufBlueBigger", init: 1.0, from: 0, to: 5, toggle: false },
            { name: "ufBlueCloser", init: 0.1, from: 0, to: 1, toggle: false },
            { name: "ubBlueBigger", init: 1, from: 0, to: 1, toggle: true },
            { name: "ubBlueCloser", init: 1, from: 0, to: 1, toggle: true }
        ]
        AdjustValue {
            objectName: "point_" + modelData.name
            label: modelData.name
            value: modelData.init
            from: modelData.from
            to: modelData.to
            toggle: modelData.toggle
            onEdited: modelData.toggle ? $DbgRender.enable(modelData.name, value !== 0)
                                       : $DbgRender.setFloat(modelData.name, value)
        }
    }
}
