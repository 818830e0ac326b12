import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts

ApplicationWindow {
    id: window
    objectName: "window"

    width: 960
    height: 640
    visible: true
    title: "CORVANE"
    Material.theme: Material.Dark

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 8

        ListView {
            id: pipelineList
            objectName: "pipelineList"

            Accessible.name: "Pipelines"
            Layout.fillWidth: true
            Layout.preferredHeight: 160
            clip: true
            model: engine.pipelines
            delegate: ItemDelegate {
                required property var modelData

                width: ListView.view.width
                text: modelData.name + " — " + modelData.state
            }
        }

        ScrollView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentWidth: availableWidth

            TextArea {
                id: logArea
                objectName: "logArea"

                Accessible.name: "Log"
                readOnly: true
                text: engine.log
                wrapMode: TextEdit.Wrap
            }
        }
    }
}
