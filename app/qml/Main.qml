import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import QtQuick.Templates as T

// The whole interface: it shows what `engine` and `updater` say and calls them, and holds no logic of its own.
// Text that comes from outside is shown as plain text wherever it stands.
ApplicationWindow {
    id: win
    objectName: "win"

    // The window opens bare, and soon; what it holds is made in the turn after its first frame.
    property bool complete: false
    property string selectedId: ""
    property var selectedPipeline: null
    property list<var> pipelineRows // as the engine has them now; a `var` would read them anew at every access
    property list<var> shownRows // those in the list, at most a tenth of a second older
    property bool rowsDue: false
    readonly property var decklinkDevices: engine.decklinkDevices() // asked once, at start: the answer is logged
    readonly property int activeCount: countActive(pipelineRows)

    signal pipelineAdded(string id)

    function isActive(state) {
        return state === "running" || state === "starting"
    }

    function countActive(rows) {
        return rows.filter(row => isActive(row.state)).length
    }

    function indexOf(rows, id) {
        return rows.findIndex(row => row.id === id)
    }

    function readPipelines() {
        refreshSelected()
        rowsDue = true
        pace.change()
    }

    function showPipelines() {
        if (!rowsDue)
            return
        rowsDue = false
        shownRows = pipelineRows
    }

    function refreshSelected() {
        pipelineRows = engine.pipelines
        selectedPipeline = selectedId === "" ? null : pipelineRows[indexOf(pipelineRows, selectedId)] ?? null
    }

    function addPipeline() {
        selectedId = engine.addPipeline("")
        pipelineAdded(selectedId)
    }

    function cameByKey(control) {
        return [Qt.TabFocusReason, Qt.BacktabFocusReason].includes(control.focusReason)
    }

    width: 1280
    height: 820
    minimumWidth: 1000
    minimumHeight: 480
    visible: true
    title: "CORVANE"
    color: theme.bg
    Material.theme: Material.Dark
    Material.accent: theme.accent

    Component.onCompleted: readPipelines()
    onSelectedIdChanged: refreshSelected()
    onFrameSwapped: {
        if (!complete)
            Qt.callLater(() => complete = true) // qmllint disable
    }

    QtObject {
        id: theme
        objectName: "theme"

        readonly property color bg: "#1a1a1e"
        readonly property color surface: "#242428"
        readonly property color surfaceRaised: "#2e2e34"
        readonly property color accent: "#4ecdc4"
        readonly property color text: "#e8e8ec"
        readonly property color muted: "#8e8e96"
        readonly property color dim: "#5e5e66"
        readonly property color danger: "#e05555"
        readonly property color running: "#4ecdc4"
        readonly property color starting: "#f0c040"
        readonly property color mono: Qt.platform.os === "osx" ? "Menlo" : "Consolas"
    }

    Connections {
        target: engine

        function onPipelinesChanged() {
            win.readPipelines()
        }
    }

    // A frame costs far more than what changes in it. After a rest a change is shown at once, and what comes within
    // the next tenth of a second together at its end.
    Timer {
        id: pace
        objectName: "pace"

        property bool due: false

        signal show

        function change() {
            due = true
            if (!running)
                turn()
        }

        function turn() {
            if (!due)
                return
            due = false
            start()
            show()
        }

        interval: 100
        onTriggered: turn()
        onShow: win.showPipelines()
    }

    // --- What repeats

    // Texts stand as they are written: some versions of the style would set them in capitals.
    // The space bar presses them by itself, Return in later versions only.
    // The style's background has a ripple and, under a raised button, a shadow drawn in a layer: most of a button's
    // memory.
    component TextButton: Button {
        id: textButton

        function press(event) {
            if (!event.isAutoRepeat)
                clicked()
        }

        font.capitalization: Font.MixedCase
        verticalPadding: 12 // as high as the toolbar in every version of the style
        implicitHeight: Math.max(48, implicitContentHeight + topPadding + bottomPadding)
        Accessible.name: text
        Accessible.onPressAction: clicked()
        Keys.onReturnPressed: event => press(event)
        Keys.onEnterPressed: event => press(event)

        background: Rectangle {
            readonly property bool lit: textButton.down || textButton.hovered || textButton.visualFocus

            implicitWidth: 64
            implicitHeight: 36
            radius: 2
            visible: lit || !textButton.flat
            color: textButton.flat ? textButton.Material.rippleColor
                                   : Qt.lighter(textButton.Material.background, textButton.down ? 1.35 : lit ? 1.2 : 1)
            border.color: theme.text
            border.width: textButton.visualFocus ? 1 : 0
        }
        contentItem: PlainText {
            text: textButton.text
            font: textButton.font
            color: textButton.Material.foreground
            elide: Text.ElideRight
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
        }
    }

    component FlatButton: TextButton {
        flat: true
    }

    // Of a size of its own, all of which is for the text.
    component SmallButton: FlatButton {
        verticalPadding: 0
        leftPadding: 0
        rightPadding: 0
        topInset: 0
        bottomInset: 0
    }

    // Digits alone: a port or a picture's width has no thousands.
    component NumberBox: SpinBox {
        id: numberBox
        textFromValue: value => value.toFixed(0)

        up.indicator: StepSign {
            x: numberBox.width - width
            text: "+"
            lit: numberBox.up.pressed || numberBox.up.hovered
        }
        down.indicator: StepSign {
            text: "−"
            lit: numberBox.down.pressed || numberBox.down.hovered
        }
    }

    // The style's have a ripple each.
    component StepSign: PlainText {
        required property bool lit

        width: 48
        height: parent.height
        font.pixelSize: 26
        color: !enabled ? theme.dim : lit ? theme.accent : theme.text
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }

    // The style's handle casts a shadow, drawn in a layer.
    component Toggle: Switch {
        id: toggle
        implicitHeight: 48 // to be hit with a finger

        indicator: Rectangle {
            x: toggle.leftPadding + (toggle.availableWidth - width) / 2
            y: toggle.topPadding + (toggle.availableHeight - height) / 2
            implicitWidth: 38
            implicitHeight: 14
            radius: 7
            color: toggle.checked ? Qt.alpha(theme.accent, 0.5) : theme.dim
            border.color: theme.text
            border.width: toggle.visualFocus ? 1 : 0

            Rectangle {
                x: toggle.visualPosition * (parent.width - width)
                y: (parent.height - height) / 2
                width: 20
                height: 20
                radius: 10
                color: toggle.checked ? theme.accent : "#bdbdbd"
                border.color: theme.text
                border.width: toggle.hovered || toggle.visualFocus ? 1 : 0
            }
        }
    }

    // A label of the style costs twice as much, which counts where there are many.
    component PlainText: Text {
        textFormat: Text.PlainText
    }

    // A label that says its colour has nothing to ask the style for.
    component PlainLabel: T.Label {}

    // The style's placeholders are too faint to be read.
    component Field: TextField {
        placeholderTextColor: theme.muted
    }

    // The style's has the colour of what it stands on, a shadow and a picture that cost more than the rest of it, and
    // ripples in its list, which Qt's software renderer draws in the window's corner.
    component Choice: ComboBox {
        id: choice
        topInset: 6
        bottomInset: 6
        topPadding: 0
        bottomPadding: 0
        leftPadding: 12
        rightPadding: 38
        Material.background: theme.surfaceRaised

        background: Rectangle {
            implicitWidth: 120
            implicitHeight: 36
            radius: 2
            color: choice.down || choice.hovered ? Qt.lighter(theme.surfaceRaised, 1.2) : theme.surfaceRaised
            border.color: theme.accent
            border.width: choice.visualFocus ? 1 : 0
        }
        contentItem: PlainText {
            text: choice.displayText
            font: choice.font
            color: theme.text
            elide: Text.ElideRight
            verticalAlignment: Text.AlignVCenter
        }
        delegate: Component {
            MenuItem {
                id: entry

                required property int index
                required property string modelData

                width: ListView.view.width
                text: modelData
                highlighted: choice.highlightedIndex === index
                hoverEnabled: choice.hoverEnabled
                Material.foreground: choice.currentIndex === index ? theme.accent : theme.text

                background: Rectangle {
                    implicitHeight: 48
                    color: entry.highlighted ? entry.Material.listHighlightColor : "transparent"
                }
            }
        }
        indicator: PlainText {
            x: choice.width - width - 14
            anchors.verticalCenter: parent.verticalCenter
            text: "▾"
            font.pixelSize: 16
            color: theme.text
        }
    }

    // Beside a field, on the line that the field's text stands on: `line`, from the top of the row.
    component Caption: PlainLabel {
        property real line: NaN

        font.pixelSize: 12
        color: theme.muted
        Layout.alignment: isNaN(line) ? Qt.AlignVCenter : Qt.AlignTop
        Layout.topMargin: isNaN(line) ? 0 : Math.max(0, line - baselineOffset)
    }

    // The family is declared as a colour; see `mono`.
    component MonoLabel: PlainLabel {
        font.family: theme.mono // qmllint disable
    }

    component Heading: PlainLabel {
        font.pixelSize: 13
        font.bold: true
        color: theme.text
    }

    component Rule: Rectangle {
        color: theme.surfaceRaised
        Layout.fillWidth: true
        Layout.preferredHeight: 1
    }

    // The style dims a dark window with white.
    component Veil: Rectangle {
        color: Qt.alpha(theme.bg, 0.7)
    }

    component Dot: Rectangle {
        required property int size

        implicitWidth: size
        implicitHeight: size
        radius: size / 2
    }

    // For what the style shows no focus of. It is for the keyboard: who clicks knows where.
    component FocusFrame: Rectangle {
        anchors.fill: parent
        z: 1
        color: "transparent"
        border.color: theme.accent
        border.width: 1
    }

    component AfterFirstFrame: Loader {
        anchors.fill: parent
        active: win.complete
    }

    // Made when it is first asked for, and kept.
    component DialogLoader: Loader {
        function open() {
            active = true;
            (item as Dialog).open()
        }

        active: false
    }

    // --- Toolbar

    component StatusChip: Row {
        id: chip

        required property string label
        required property bool healthy

        spacing: 4
        Accessible.role: Accessible.StaticText
        Accessible.name: label + (healthy ? ": disponível" : ": indisponível")

        Dot {
            objectName: "chipDot"
            size: 8
            anchors.verticalCenter: parent.verticalCenter
            color: chip.healthy ? theme.accent : theme.danger
        }

        PlainLabel {
            objectName: "chipLabel"
            anchors.verticalCenter: parent.verticalCenter
            text: chip.label
            font.pixelSize: 11
            color: theme.muted
        }
    }

    component UpdateButton: FlatButton {
        id: updateBtn
        objectName: "updateBtn"

        property int _state: 0 // 0 idle, 1 checking, 2 up to date, 3 failed

        text: updater.updateAvailable
              ? "Atualizar " + updater.latestVersion
              : ["Verificar update", "Verificando...", "✓ Atualizado", "✗ Erro"][_state]
        Material.foreground: _state === 2 ? theme.accent : _state === 3 ? theme.danger : theme.muted

        // The version comes from the feed; a button's own label would read markup in it.
        contentItem: PlainLabel {
            objectName: "updateText"
            text: updateBtn.text
            textFormat: Text.PlainText
            font: updateBtn.font
            color: updateBtn.Material.foreground
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
        }

        onClicked: {
            if (updater.updateAvailable) {
                updater.applyIfSafe()
                return
            }
            if (_state === 1)
                return
            _state = 1
            updater.checkNow()
        }

        Connections {
            target: updater

            function onUpToDate() {
                updateBtn._state = 2
                updateRevertTimer.start()
            }

            function onCheckFailed() {
                updateBtn._state = 3
                updateRevertTimer.start()
            }
        }

        Timer {
            id: updateRevertTimer
            objectName: "updateRevertTimer"
            interval: 3000
            onTriggered: updateBtn._state = 0
        }
    }

    component ToolBarRow: RowLayout {
        id: toolBarRow
        objectName: "toolBarRow"

        signal aboutRequested

        spacing: 12

        PlainLabel {
            objectName: "logo"

            function span(part, colour) {
                return "<span style=\"font-size:17px; font-weight:700; color:" + colour + "\">"
                        + part + "</span>"
            }

            textFormat: Text.RichText
            color: theme.muted
            text: span("COR", theme.muted) + span("VA", theme.accent) + span("NE", theme.muted)
            Accessible.name: "CORVANE"
        }

        Item {
            objectName: "logoGap"
            Layout.preferredWidth: 24
        }

        StatusChip {
            objectName: "chipFfmpeg"
            label: "ffmpeg"
            healthy: engine.ffmpegPath !== ""
        }

        StatusChip {
            objectName: "chipNdi"
            label: "NDI"
            healthy: engine.ffmpegHasNdi
        }

        StatusChip {
            objectName: "chipSrt"
            label: "SRT"
            healthy: engine.srtAvailable
        }

        StatusChip {
            objectName: "chipSrtla"
            label: "srtla"
            healthy: engine.srtlaAvailable
        }

        StatusChip {
            objectName: "chipDecklink"
            label: "DeckLink"
            healthy: engine.decklinkSupported
        }

        Item {
            objectName: "toolBarFiller"
            Layout.fillWidth: true
        }

        UpdateButton {}

        FlatButton {
            objectName: "aboutButton"
            text: "Sobre"
            Material.foreground: theme.muted
            onClicked: toolBarRow.aboutRequested()
        }
    }

    // --- Sidebar

    // As wide as its text; the style's least width takes the room from the label beside it.
    component HeaderButton: FlatButton {
        leftPadding: 6
        rightPadding: 6
        implicitWidth: Math.max(36, implicitContentWidth + leftPadding + rightPadding)
    }

    component SidebarHeader: Rectangle {
        id: sidebarHeader
        objectName: "sidebarHeader"

        signal stopAllRequested

        color: theme.surfaceRaised

        RowLayout {
            objectName: "sidebarHeaderRow"
            anchors.fill: parent
            anchors.leftMargin: 14
            anchors.rightMargin: 14

            PlainLabel {
                objectName: "streamsLabel"
                text: "Streams"
                font.pixelSize: 14
                font.bold: true
                color: theme.text
                elide: Text.ElideRight
                Layout.fillWidth: true
            }

            HeaderButton {
                objectName: "startAllButton"
                text: "▶ Todas"
                font.pixelSize: 11
                visible: win.pipelineRows.length > 0
                Material.foreground: theme.accent
                Accessible.name: "Iniciar todas as streams"
                onClicked: engine.startAll()
            }

            HeaderButton {
                objectName: "stopAllButton"
                text: "■ Parar"
                font.pixelSize: 11
                visible: win.activeCount > 0
                Material.foreground: theme.danger
                Accessible.name: "Parar todas as streams"
                onClicked: sidebarHeader.stopAllRequested()
            }

            HeaderButton {
                objectName: "addButton"
                text: "+"
                font.pixelSize: 20
                font.bold: true
                implicitWidth: 40
                Material.foreground: theme.accent
                Accessible.name: "Nova stream"
                onClicked: win.addPipeline()
            }
        }
    }

    // Built anew at every change of the list: what a row doesn't show it doesn't make.
    component PipelineRow: Rectangle {
        id: plDel
        objectName: "plDel"

        required property var modelData
        required property int index
        readonly property bool active: win.isActive(modelData.state)
        property bool confirmingStop: false
        property bool renaming: false

        // The call rebuilds the rows, this one with them, so it comes last.
        function finishRenaming(newName) {
            if (!renaming)
                return
            renaming = false
            engine.renamePipeline(modelData.id, newName)
        }

        function confirmStop() {
            if (!confirmingStop) {
                confirmingStop = true
                confirmStopTimer.start()
                return
            }
            confirmingStop = false
            engine.stopPipeline(modelData.id)
        }

        width: ListView.view.width
        height: plCol.implicitHeight + 16
        color: modelData.id === win.selectedId ? theme.surfaceRaised : "transparent"
        Accessible.role: Accessible.ListItem
        Accessible.name: nameLabel.text + ", " + statusLine.text
        Accessible.selected: modelData.id === win.selectedId
        Accessible.onPressAction: win.selectedId = modelData.id

        Timer {
            id: confirmStopTimer
            objectName: "confirmStopTimer"
            interval: 3000
            onTriggered: plDel.confirmingStop = false
        }

        MouseArea {
            objectName: "rowArea"
            anchors.fill: parent
            onClicked: win.selectedId = plDel.modelData.id
            onDoubleClicked: plDel.renaming = true
        }

        RowLayout {
            id: plCol
            objectName: "plCol"
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.top: parent.top
            anchors.margins: 10
            spacing: 8

            Dot {
                objectName: "statusDot"
                size: 10
                color: ({running: theme.running, starting: theme.starting,
                         failed: theme.danger})[plDel.modelData.state] ?? theme.dim
                Layout.alignment: Qt.AlignTop
                Layout.topMargin: 4
            }

            ColumnLayout {
                objectName: "rowColumn"
                spacing: 2
                Layout.fillWidth: true

                PlainText {
                    id: nameLabel
                    objectName: "nameLabel"
                    visible: !plDel.renaming
                    text: plDel.modelData.name || "Stream " + (plDel.index + 1)
                    font.pixelSize: 13
                    font.bold: true
                    color: theme.text
                    elide: Text.ElideRight
                    maximumLineCount: 1
                    Layout.fillWidth: true
                }

                Loader {
                    objectName: "renameLoader"
                    active: plDel.renaming
                    visible: active
                    Layout.fillWidth: true

                    // The list has the keyboard again, not a place where nothing is any more.
                    onActiveChanged: {
                        if (!active)
                            focus = false
                    }

                    sourceComponent: Field {
                        id: renameField
                        objectName: "renameField"
                        text: plDel.modelData.name
                        font.pixelSize: 13
                        Accessible.name: "Novo nome da stream"

                        Component.onCompleted: {
                            forceActiveFocus()
                            selectAll()
                        }
                        onEditingFinished: plDel.finishRenaming(text)
                        Keys.onEscapePressed: plDel.renaming = false
                    }
                }

                PlainText {
                    id: statusLine
                    objectName: "statusLine"
                    text: plDel.modelData.state + " · " + plDel.modelData.outputs + " saída(s)"
                    font.pixelSize: 11
                    color: theme.muted
                    elide: Text.ElideRight // the stop button has its place in any font
                    Layout.fillWidth: true
                }

                PlainText {
                    readonly property var row: plDel.modelData

                    objectName: "telemetryLine"
                    visible: row.state === "running"
                    text: row.fps.toFixed(0) + "fps · " + row.bitrate.toFixed(0)
                          + "kb/s · RTT " + row.rtt.toFixed(0) + "ms"
                          + (row.sndDrop > 0 ? " · drop " + row.sndDrop : "")
                          + (row.level > 0 ? " · ⬇nível " + row.level : "")
                    font.family: theme.mono // qmllint disable
                    font.pixelSize: 10
                    color: row.level > 0 || row.sndDrop > 0 ? theme.danger : theme.accent
                    wrapMode: Text.Wrap // the warning stands at the end
                    Layout.fillWidth: true
                }
            }

            Loader {
                objectName: "rowStopLoader"
                active: plDel.active
                visible: active
                Layout.alignment: Qt.AlignTop

                sourceComponent: SmallButton {
                    id: rowStop
                    objectName: "rowStopButton"
                    text: plDel.confirmingStop ? "Confirmar?" : "■"
                    font.pixelSize: plDel.confirmingStop ? 10 : 14
                    implicitWidth: plDel.confirmingStop ? 72 : 32
                    implicitHeight: 28
                    Material.foreground: theme.danger
                    Accessible.name: (plDel.confirmingStop ? "Confirmar parada de " : "Parar ")
                                     + nameLabel.text

                    // Armed, it has a frame, not under the pointer alone.
                    background: Rectangle {
                        radius: 2
                        color: plDel.confirmingStop ? theme.bg : rowStop.Material.rippleColor
                        border.color: theme.danger
                        border.width: plDel.confirmingStop ? rowStop.hovered || rowStop.visualFocus ? 2 : 1 : 0
                        opacity: plDel.confirmingStop || rowStop.down ? 1
                                 : rowStop.hovered || rowStop.visualFocus ? 0.6 : 0
                    }

                    onClicked: plDel.confirmStop()
                }
            }
        }

        Rectangle {
            objectName: "rowRule"
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            height: 1
            color: theme.bg
        }
    }

    component PipelineList: ListView {
        id: pipelineList
        objectName: "pipelineList"

        property string awaitedId: ""
        property bool focused: false
        property bool byKey: false

        // Only keys bring the focus to a row; a row that is renewed under the pointer hands it on to the next one.
        function noteFocus() {
            const item = win.activeFocusItem
            if (activeFocus && item && item.focusReason !== undefined)
                byKey = win.cameByKey(item)
            else if (activeFocus && !focused)
                byKey = true
            focused = activeFocus
        }

        function showAwaited() {
            const at = win.indexOf(win.shownRows, awaitedId)
            if (at < 0)
                return
            awaitedId = ""
            positionViewAtIndex(at, ListView.Contain)
        }

        // A list with another model begins at its top.
        function renew() {
            const first = contentY > originY ? indexAt(0, contentY) : -1
            const hidden = first < 0 ? 0 : contentY - itemAtIndex(first).y
            model = win.shownRows
            if (first >= 0 && count > 0) {
                positionViewAtIndex(Math.min(first, count - 1), ListView.Beginning)
                contentY = Math.max(originY, Math.min(contentY + hidden, originY + contentHeight - height))
            }
            showAwaited()
        }

        function selectBeside(step) {
            const rows = win.shownRows
            const at = win.indexOf(rows, win.selectedId)
            const next = at < 0 ? 0 : Math.max(0, Math.min(at + step, rows.length - 1))
            byKey = true
            win.selectedId = rows[next].id
            positionViewAtIndex(next, ListView.Contain)
        }

        clip: true
        cacheBuffer: 0 // rows out of sight would be made anew as often as the others
        activeFocusOnTab: count > 0
        Accessible.role: Accessible.List
        Accessible.name: "Streams"
        Keys.onUpPressed: selectBeside(-1)
        Keys.onDownPressed: selectBeside(1)
        ScrollBar.vertical: ScrollBar {
            visible: size < 1 // one with nothing to scroll would take the clicks on the rows below it
        }
        Component.onCompleted: renew()

        Connections {
            target: win

            function onShownRowsChanged() {
                pipelineList.renew()
            }

            function onPipelineAdded(id) {
                pipelineList.awaitedId = id
                pipelineList.showAwaited()
            }

            function onActiveFocusItemChanged() {
                pipelineList.noteFocus()
            }
        }

        FocusFrame {
            objectName: "pipelineListFocus"
            parent: pipelineList
            visible: pipelineList.activeFocus && pipelineList.byKey
        }

        // Qt 6.4 makes no component by itself of what stands on the root of an inline component.
        delegate: Component {
            PipelineRow {}
        }
    }

    component Sidebar: Rectangle {
        id: sidebar
        objectName: "sidebar"

        signal stopAllRequested

        color: theme.surface

        ColumnLayout {
            objectName: "sidebarColumn"
            anchors.fill: parent
            spacing: 0

            SidebarHeader {
                Layout.fillWidth: true
                Layout.preferredHeight: 52
                onStopAllRequested: sidebar.stopAllRequested()
            }

            Rule {
                objectName: "sidebarRule"
                color: theme.bg
            }

            PipelineList {
                Layout.fillWidth: true
                Layout.fillHeight: true
            }
        }
    }

    // --- Editor

    component EmptyState: ColumnLayout {
        objectName: "emptyState"
        spacing: 16

        PlainLabel {
            objectName: "emptyLabel"
            text: "Crie uma nova stream para começar"
            font.pixelSize: 16
            color: theme.muted
            Layout.alignment: Qt.AlignHCenter
        }

        FlatButton {
            objectName: "emptyAddButton"
            text: "+"
            font.pixelSize: 48
            Material.foreground: theme.accent
            Accessible.name: "Criar a primeira stream"
            Layout.alignment: Qt.AlignHCenter
            onClicked: win.addPipeline()
        }
    }

    component EditorPage: ScrollView {
        id: page

        default property alias content: pane.contentData
        readonly property real layoutWidth: pane.width - 32

        function holds(item) {
            return item !== null && (item === pane || holds(item.parent))
        }

        function reveal(control) {
            const flickable = page.contentItem as Flickable
            const top = control.mapToItem(pane, 0, 0).y
            const lowest = top - 8
            const highest = top + control.height + 8 - flickable.height
            const wanted = Math.min(Math.max(flickable.contentY, highest), lowest)
            flickable.contentY = Math.max(0, Math.min(wanted, flickable.contentHeight - flickable.height))
        }

        contentWidth: availableWidth
        ScrollBar.vertical.width: 10 // of the margin's 16
        ScrollBar.vertical.policy: ScrollBar.AlwaysOn
        ScrollBar.vertical.visible: contentHeight > availableHeight

        // The keyboard reaches controls that the page has scrolled out of sight.
        Connections {
            target: win

            function onActiveFocusControlChanged() {
                const control = win.activeFocusControl
                if (page.holds(control) && win.cameByKey(control))
                    page.reveal(control)
            }
        }

        Pane {
            id: pane
            objectName: "pagePane"
            width: page.availableWidth
            Material.background: theme.bg
        }
    }

    component SourcePage: EditorPage {
        id: sourcePage
        objectName: "sourcePage"

        readonly property int pictureWidth: resW.value
        readonly property int pictureHeight: resH.value
        readonly property real fps: fpsPicker.fps

        function send(map) {
            engine.configureSource(win.selectedId, map)
        }

        GridLayout {
            objectName: "sourceGrid"
            width: sourcePage.layoutWidth
            anchors.horizontalCenter: parent.horizontalCenter
            columns: 2
            columnSpacing: 16
            rowSpacing: 12

            Caption {
                objectName: "srcKindCaption"
                line: srcKind.baselineOffset
                text: "Tipo de fonte"
            }

            Choice {
                id: srcKind
                objectName: "srcKind"
                model: ["testpattern", "ndi", "srt", "capture", "decklink", "file"]
                Layout.fillWidth: true
                Accessible.name: "Tipo de fonte"
                onActivated: sourcePage.send({"kind": currentText})
            }

            Caption {
                objectName: "srcUriCaption"
                line: srcUriField.y + srcUriField.baselineOffset
                text: "URI / fonte"
            }

            RowLayout {
                objectName: "srcUriRow"
                spacing: 8
                Layout.fillWidth: true

                Field {
                    id: srcUriField
                    objectName: "srcUriField"
                    placeholderText: "NDI name, srt://host:port, device, arquivo..."
                    Layout.fillWidth: true
                    Accessible.name: "URI / fonte"
                    onEditingFinished: sourcePage.send({"uri": text})
                }

                Choice {
                    id: ndiPicker
                    objectName: "ndiPicker"
                    visible: engine.ndiSupported
                    displayText: "NDI…"
                    Layout.preferredWidth: 180
                    Accessible.name: "Fontes NDI na rede"
                    onPressedChanged: {
                        if (pressed)
                            model = engine.ndiSources(1500)
                    }
                    onActivated: {
                        srcUriField.text = currentText
                        sourcePage.send({"kind": "ndi", "uri": currentText})
                    }
                }
            }

            Caption {
                objectName: "decklinkCaption"
                line: decklinkPicker.baselineOffset
                text: "DeckLink device"
                visible: engine.decklinkSupported
            }

            Choice {
                id: decklinkPicker
                objectName: "decklinkPicker"
                visible: engine.decklinkSupported
                model: win.decklinkDevices
                Layout.fillWidth: true
                Accessible.name: "DeckLink device"
                onActivated: sourcePage.send({"kind": "decklink", "uri": currentText})
            }

            Caption {
                objectName: "danteCaption"
                line: danteField.baselineOffset
                text: "Áudio Dante (DVS)"
            }

            Field {
                id: danteField
                objectName: "danteField"
                placeholderText: "device DVS (vazio = sem áudio externo)"
                Layout.fillWidth: true
                Accessible.name: "Áudio Dante (DVS)"
                onEditingFinished: sourcePage.send({"danteDevice": text})
            }

            Caption {
                objectName: "resolutionCaption"
                line: resW.y + resW.baselineOffset
                text: "Resolução"
            }

            RowLayout {
                objectName: "resolutionRow"
                spacing: 8
                Layout.fillWidth: true

                NumberBox {
                    id: resW
                    objectName: "resW"
                    from: 320
                    to: 7680
                    stepSize: 2
                    value: 1920
                    editable: true
                    Accessible.name: "Largura em pixels"
                    onValueModified: sourcePage.send({"width": value})
                }

                PlainLabel {
                    objectName: "resTimes"
                    text: "×"
                    color: theme.muted
                }

                NumberBox {
                    id: resH
                    objectName: "resH"
                    from: 240
                    to: 4320
                    stepSize: 2
                    value: 1080
                    editable: true
                    Accessible.name: "Altura em pixels"
                    onValueModified: sourcePage.send({"height": value})
                }
            }

            Caption {
                objectName: "fpsCaption"
                line: fpsPicker.baselineOffset
                text: "FPS"
            }

            Choice {
                id: fpsPicker
                objectName: "fpsPicker"

                readonly property real fps: parseFloat(currentText)

                model: ["23.976", "24", "25", "29.97", "30", "50", "59.94", "60"]
                currentIndex: 4
                Layout.fillWidth: true
                Accessible.name: "FPS"
                onActivated: sourcePage.send({"fps": parseFloat(currentText)})
            }
        }
    }

    component EncoderAdviceBox: Rectangle {
        id: encAdviceBox
        objectName: "encAdviceBox"

        required property int pictureWidth
        required property int pictureHeight
        required property real fps

        radius: 6
        color: "#1a2e2c"
        border.color: "#2a4e4a"
        border.width: 1
        implicitHeight: encAdviceCol.implicitHeight + 20

        ColumnLayout {
            id: encAdviceCol
            objectName: "encAdviceCol"
            anchors.fill: parent
            anchors.margins: 10
            spacing: 6

            RowLayout {
                objectName: "encAdviceHeader"
                spacing: 8

                PlainLabel {
                    objectName: "encAdviceTitle"
                    text: "Sugestao de encoder"
                    font.pixelSize: 13
                    font.bold: true
                    color: theme.accent
                }

                Item {
                    objectName: "encAdviceFiller"
                    Layout.fillWidth: true
                }

                FlatButton {
                    objectName: "detectHwButton"
                    text: "Detectar HW"
                    font.pixelSize: 11
                    Material.foreground: theme.accent
                    onClicked: {
                        const box = encAdviceBox
                        const advice = engine.encoderAdvice(box.pictureWidth, box.pictureHeight, box.fps)
                        encAdviceText.text = advice.hwLabel + " (" + advice.encoder + ")"
                                + "\nPreset: " + advice.presetHint
                                + (advice.hevcAvailable ? "\nHEVC disponivel: " + advice.hevcEncoder : "")
                                + (advice.av1Available ? "\nAV1 disponivel: " + advice.av1Encoder : "")
                                + "\n" + advice.tip
                        encAdviceText.visible = true
                    }
                }
            }

            MonoLabel {
                id: encAdviceText
                objectName: "encAdviceText"
                visible: false
                wrapMode: Text.Wrap
                textFormat: Text.PlainText
                color: theme.fg ?? Material.foreground // qmllint disable
                font.pixelSize: 11
                Layout.fillWidth: true
            }
        }
    }

    component EncoderPage: EditorPage {
        id: encoderPage
        objectName: "encoderPage"

        required property int pictureWidth
        required property int pictureHeight
        required property real fps

        function send(map) {
            engine.configureEncoder(win.selectedId, map)
        }

        GridLayout {
            objectName: "encoderGrid"
            width: encoderPage.layoutWidth
            anchors.horizontalCenter: parent.horizontalCenter
            columns: 2
            columnSpacing: 16
            rowSpacing: 12

            PlainLabel {
                objectName: "encoderSpacer"
                Layout.columnSpan: 2
            }

            EncoderAdviceBox {
                pictureWidth: encoderPage.pictureWidth
                pictureHeight: encoderPage.pictureHeight
                fps: encoderPage.fps
                Layout.columnSpan: 2
                Layout.fillWidth: true
            }

            Caption {
                objectName: "encCodecCaption"
                line: encCodec.baselineOffset
                text: "Codec video"
            }

            Choice {
                id: encCodec
                objectName: "encCodec"
                model: ["h264", "hevc", "av1"]
                Layout.fillWidth: true
                Accessible.name: "Codec video"
                onActivated: encoderPage.send({"codec": currentText})
            }

            Caption {
                objectName: "encHwCaption"
                line: encHw.baselineOffset
                text: "Aceleracao HW"
            }

            Choice {
                id: encHw
                objectName: "encHw"
                model: ["auto", "videotoolbox", "x264", "nvenc", "qsv", "amf"]
                Layout.fillWidth: true
                Accessible.name: "Aceleracao HW"
                onActivated: encoderPage.send({"hw": currentText})
            }

            Caption {
                objectName: "encPresetCaption"
                line: encPreset.baselineOffset
                text: "Preset"
            }

            Choice {
                id: encPreset
                objectName: "encPreset"
                model: ["auto", "ultrafast", "superfast", "veryfast", "fast", "medium",
                    "slow"]
                Layout.fillWidth: true
                Accessible.name: "Preset"
                onActivated: encoderPage.send({"preset": currentText})
            }

            Caption {
                objectName: "encBitrateCaption"
                line: encBitrate.y + encBitrate.baselineOffset
                text: "Bitrate (kbps)"
            }

            RowLayout {
                objectName: "encBitrateRow"
                spacing: 8
                Layout.fillWidth: true

                NumberBox {
                    id: encBitrate
                    objectName: "encBitrate"
                    from: 500
                    to: 50000
                    stepSize: 500
                    value: 6000
                    editable: true
                    Accessible.name: "Bitrate (kbps)"
                    onValueModified: encoderPage.send({"bitrate": value})
                }

                FlatButton {
                    objectName: "suggestButton"
                    text: "Sugerir"
                    font.pixelSize: 11
                    Material.foreground: theme.accent
                    Accessible.name: "Sugerir bitrate"
                    onClicked: {
                        const page = encoderPage
                        const advice = engine.bitrateAdvice(page.pictureWidth, page.pictureHeight, page.fps)
                        bitrateAdviceTip.text = "Recomendado: " + advice.recommended + "kbps"
                                + " (min " + advice.min + " / max " + advice.max + ")"
                                + "\nbufsize: " + advice.bufsize + "k | GOP: " + advice.keyint + " frames"
                                + "\nTwitch max: " + advice.platforms.twitch.maxBitrate
                                + " | YouTube max: " + advice.platforms.youtube.maxBitrate
                        bitrateAdviceTip.open()
                        bitrateAdviceHide.restart()
                    }

                    ToolTip {
                        id: bitrateAdviceTip
                        objectName: "bitrateAdviceTip"
                        timeout: 8000
                        font.family: theme.mono // qmllint disable
                        font.pixelSize: 11

                        // A wrapping text asks for the width of all its lines in a row.
                        contentItem: Label {
                            text: bitrateAdviceTip.text
                            textFormat: Text.PlainText
                            font: bitrateAdviceTip.font

                            // It lies over controls that an operator wants next.
                            TapHandler {
                                margin: bitrateAdviceTip.padding
                                onTapped: bitrateAdviceTip.close()
                            }
                        }
                    }

                    Timer {
                        id: bitrateAdviceHide
                        objectName: "bitrateAdviceHide"
                        interval: 8000
                        onTriggered: bitrateAdviceTip.close()
                    }
                }
            }

            Caption {
                objectName: "encKeyintCaption"
                line: encKeyint.baselineOffset
                text: "Keyframe (s)"
            }

            NumberBox {
                id: encKeyint
                objectName: "encKeyint"
                from: 1
                to: 10
                value: 2
                editable: true
                Accessible.name: "Keyframe (s)"
                onValueModified: encoderPage.send({"keyintSec": value})
            }

            Caption {
                objectName: "encZeroLatencyCaption"
                text: "Zero latency"
            }

            Toggle {
                objectName: "encZeroLatency"
                checked: true
                Accessible.name: "Zero latency"
                onToggled: encoderPage.send({"zeroLatency": checked})
            }

            Caption {
                objectName: "encBFramesCaption"
                text: "B-frames"
            }

            Toggle {
                objectName: "encBFrames"
                Accessible.name: "B-frames"
                onToggled: encoderPage.send({"bFrames": checked})
            }

            Caption {
                objectName: "encAudioCodecCaption"
                line: encAudioCodec.baselineOffset
                text: "Codec audio"
            }

            Choice {
                id: encAudioCodec
                objectName: "encAudioCodec"
                model: ["aac", "opus", "copy"]
                Layout.fillWidth: true
                Accessible.name: "Codec audio"
                onActivated: encoderPage.send({"audioCodec": currentText})
            }

            Caption {
                objectName: "encAudioBitrateCaption"
                line: encAudioBitrate.baselineOffset
                text: "Bitrate audio (kbps)"
            }

            NumberBox {
                id: encAudioBitrate
                objectName: "encAudioBitrate"
                from: 64
                to: 512
                stepSize: 32
                value: 128
                editable: true
                Accessible.name: "Bitrate audio (kbps)"
                onValueModified: encoderPage.send({"audioBitrate": value})
            }
        }
    }

    component AddButton: TextButton {
        Material.background: theme.surfaceRaised
    }

    component OutputRow: Rectangle {
        id: outputRow
        objectName: "outputRow"

        required property var modelData
        required property int index
        property bool confirmDelete: false

        radius: 6
        color: theme.surfaceRaised

        Timer {
            id: delConfirmTimer
            objectName: "delConfirmTimer"
            interval: 2000
            onTriggered: outputRow.confirmDelete = false
        }

        RowLayout {
            objectName: "outputRowLayout"
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 8
            spacing: 8

            PlainLabel {
                objectName: "outputIcon"
                text: ({rtmp: "📡", srtla: "🔗"})[outputRow.modelData.kind] ?? "🌐"
                font.pixelSize: 14
                color: theme.text
            }

            MonoLabel {
                objectName: "outputUrl"
                text: outputRow.modelData.url ?? ""
                textFormat: Text.PlainText
                elide: Text.ElideMiddle
                maximumLineCount: 1
                color: theme.text
                font.pixelSize: 12
                Layout.fillWidth: true
            }

            Toggle {
                objectName: "outputSwitch"
                checked: outputRow.modelData.enabled !== false
                Layout.fillHeight: true
                Accessible.name: "Saída ativa: " + outputRow.modelData.url
                onToggled: engine.setOutputEnabled(win.selectedId, outputRow.index, checked)
            }

            SmallButton {
                objectName: "outputDelete"
                text: outputRow.confirmDelete ? "?" : "✗"
                font.pixelSize: 14
                implicitWidth: 32
                implicitHeight: 32
                Material.foreground: theme.danger
                Accessible.name: ToolTip.text + ": " + outputRow.modelData.url
                ToolTip.visible: hovered
                ToolTip.text: outputRow.confirmDelete ? "Clique de novo para remover" : "Remover"

                onClicked: {
                    if (!outputRow.confirmDelete) {
                        outputRow.confirmDelete = true
                        delConfirmTimer.start()
                        return
                    }
                    engine.removeOutput(win.selectedId, outputRow.index)
                    outputRow.confirmDelete = false
                }
            }
        }
    }

    component AddRtmpRow: RowLayout {
        objectName: "rtmpRow"
        spacing: 8

        Field {
            id: rtmpUrl
            objectName: "rtmpUrl"
            placeholderText: "rtmp://a.rtmp.youtube.com/live2/KEY"
            Layout.fillWidth: true
            Accessible.name: "URL RTMP"
        }

        AddButton {
            objectName: "addRtmpButton"
            text: "+ RTMP"
            Accessible.name: "Adicionar saída RTMP"
            onClicked: {
                if (rtmpUrl.text === "")
                    return
                engine.addRtmpOutput(win.selectedId, rtmpUrl.text)
                rtmpUrl.clear()
            }
        }
    }

    component SrtScenarioRow: RowLayout {
        id: srtScenarioRow
        objectName: "srtScenarioRow"

        signal advised(var advice)

        function reset() {
            srtScenario.currentIndex = 0
        }

        spacing: 8

        Caption {
            objectName: "srtScenarioCaption"
            line: srtScenario.baselineOffset
            text: "Cenário"
        }

        Choice {
            id: srtScenario
            objectName: "srtScenario"

            readonly property var keys: ["lan", "fiber", "irl", "srtla", "relay"]

            model: ["(manual)", "Estúdio LAN", "Internet Fibra", "IRL 4G/5G", "Bonding srtla", "Relay"]
            Layout.fillWidth: true
            Accessible.name: "Cenário"

            onActivated: {
                if (currentIndex > 0)
                    srtScenarioRow.advised(engine.srtParamAdvice(keys[currentIndex - 1]))
            }
        }
    }

    component SrtFields: GridLayout {
        objectName: "srtGrid"

        readonly property string url: srtUrl.text
        readonly property int latency: srtLatency.value
        readonly property string passphrase: srtPass.text
        readonly property string streamid: srtStreamid.text
        readonly property int oheadbw: srtOheadbw.value
        readonly property int maxbw: srtMaxbw.value

        function propose(advice) {
            srtLatency.value = advice.latency || 120
            srtOheadbw.value = advice.oheadbw || 25
            srtMaxbw.value = advice.maxbw || 0
        }

        // The numbers stay for the next output.
        function clear() {
            srtUrl.clear()
            srtPass.clear()
            srtStreamid.clear()
        }

        columns: 2
        columnSpacing: 16
        rowSpacing: 8

        Caption {
            objectName: "srtUrlCaption"
            line: srtUrl.baselineOffset
            text: "URL"
        }

        Field {
            id: srtUrl
            objectName: "srtUrl"
            placeholderText: "srt://host:9000"
            Layout.fillWidth: true
            Accessible.name: "URL SRT"
        }

        Caption {
            objectName: "srtLatencyCaption"
            line: srtLatency.baselineOffset
            text: "Latência (ms)"
        }

        NumberBox {
            id: srtLatency
            objectName: "srtLatency"
            from: 20
            to: 8000
            stepSize: 10
            value: 120
            editable: true
            Accessible.name: "Latência (ms)"
        }

        Caption {
            objectName: "srtPassCaption"
            line: srtPass.baselineOffset
            text: "Passphrase"
        }

        Field {
            id: srtPass
            objectName: "srtPass"
            placeholderText: "(opcional)"
            echoMode: TextInput.Password
            Layout.fillWidth: true
            Accessible.name: "Passphrase"
        }

        Caption {
            objectName: "srtStreamidCaption"
            line: srtStreamid.baselineOffset
            text: "streamid"
        }

        Field {
            id: srtStreamid
            objectName: "srtStreamid"
            placeholderText: "literal, não URL-encoded"
            Layout.fillWidth: true
            Accessible.name: "streamid"
        }

        Caption {
            objectName: "srtOheadbwCaption"
            line: srtOheadbw.baselineOffset
            text: "oheadbw (%)"
        }

        NumberBox {
            id: srtOheadbw
            objectName: "srtOheadbw"
            from: 0
            to: 100
            value: 25
            editable: true
            Accessible.name: "oheadbw (%)"
        }

        Caption {
            objectName: "srtMaxbwCaption"
            line: srtMaxbw.baselineOffset
            text: "maxbw (bps, 0=auto)"
        }

        NumberBox {
            id: srtMaxbw
            objectName: "srtMaxbw"
            from: 0
            to: 100000000
            stepSize: 100000
            value: 0
            editable: true
            Accessible.name: "maxbw (bps, 0=auto)"
        }
    }

    component AddSrtlaRow: RowLayout {
        objectName: "srtlaRow"
        spacing: 8

        Field {
            id: srtlaHost
            objectName: "srtlaHost"
            placeholderText: "receptor Nimble (host)"
            Layout.fillWidth: true
            Accessible.name: "Host do receptor de bonding"
        }

        NumberBox {
            id: srtlaPort
            objectName: "srtlaPort"
            from: 1
            to: 65535
            value: 5000
            editable: true
            Accessible.name: "Porta do receptor de bonding"
        }

        AddButton {
            objectName: "addSrtlaButton"
            text: "+ srtla"
            Accessible.name: "Adicionar saída de bonding"
            onClicked: {
                if (srtlaHost.text === "")
                    return
                engine.addSrtlaOutput(win.selectedId, srtlaHost.text, srtlaPort.value)
                srtlaHost.clear()
            }
        }
    }

    component OutputsPage: EditorPage {
        id: outputsPage
        objectName: "outputsPage"

        ColumnLayout {
            objectName: "outputsColumn"
            width: outputsPage.layoutWidth
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 12

            Heading {
                objectName: "outputsHeading"
                text: "Saídas configuradas"
                Layout.topMargin: 8
            }

            Repeater {
                id: outputsRepeater
                objectName: "outputsRepeater"

                readonly property bool empty: !model || model.length === 0

                // Read when the selection changes, and only then.
                model: win.selectedId !== "" ? engine.outputsView(win.selectedId) : []

                OutputRow {
                    Layout.fillWidth: true
                    Layout.preferredHeight: 40
                }
            }

            PlainLabel {
                objectName: "noOutputsLabel"
                text: "Nenhuma saída configurada"
                visible: outputsRepeater.empty
                color: theme.dim
                font.pixelSize: 12
                Layout.alignment: Qt.AlignHCenter
                Layout.topMargin: 16
            }

            Rule {
                objectName: "outputsRule"
                Layout.topMargin: 8
            }

            Heading {
                objectName: "rtmpHeading"
                text: "Adicionar RTMP"
                Layout.topMargin: 8
            }

            AddRtmpRow {}

            Rule {
                objectName: "srtRule"
            }

            Heading {
                objectName: "srtHeading"
                text: "Adicionar SRT"
            }

            SrtScenarioRow {
                id: srtScenarioRow
                onAdvised: advice => srtFields.propose(advice)
            }

            SrtFields {
                id: srtFields
                Layout.fillWidth: true
            }

            PlainLabel {
                objectName: "streamidHint"
                text: "streamid deve ser literal, não URL-encoded (lição HALVORNNIMBLE)"
                font.pixelSize: 10
                font.italic: true
                color: theme.dim
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }

            AddButton {
                objectName: "addSrtButton"
                text: "+ SRT"
                Accessible.name: "Adicionar saída SRT"
                onClicked: {
                    const srt = srtFields
                    if (srt.url === "")
                        return
                    engine.addSrtOutputFull(win.selectedId, srt.url, srt.latency, srt.passphrase, srt.streamid,
                                            srt.oheadbw, srt.maxbw)
                    srt.clear()
                    srtScenarioRow.reset()
                }
            }

            Rule {
                objectName: "srtlaRule"
            }

            Heading {
                objectName: "srtlaHeading"
                text: "Adicionar Bonding (srtla)"
            }

            AddSrtlaRow {}

            FlatButton {
                objectName: "clearOutputsButton"
                text: "Limpar todas as saídas"
                visible: !outputsRepeater.empty
                Material.foreground: theme.danger
                Layout.topMargin: 8
                onClicked: engine.clearOutputs(win.selectedId)
            }
        }
    }

    component PreviewPage: EditorPage {
        id: previewPage
        objectName: "previewPage"

        ColumnLayout {
            objectName: "previewColumn"
            width: previewPage.layoutWidth
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 12

            Heading {
                objectName: "previewHeading"
                text: "Comando ffmpeg (preview / auditoria)"
                Layout.topMargin: 8
            }

            Rectangle {
                objectName: "previewBox"
                color: theme.surface
                radius: 6
                Layout.fillWidth: true
                Layout.preferredHeight: Math.max(120, previewText.implicitHeight + 24)

                TextArea {
                    id: previewText
                    objectName: "previewText"
                    anchors.fill: parent
                    anchors.margins: 8
                    readOnly: true
                    wrapMode: TextEdit.Wrap
                    textFormat: TextEdit.PlainText
                    topPadding: 8
                    bottomPadding: 16
                    leftPadding: 0
                    rightPadding: 0
                    font.family: theme.mono // qmllint disable
                    font.pixelSize: 11
                    color: theme.text
                    background: null
                    text: win.selectedId !== "" ? engine.previewCommand(win.selectedId) : ""
                    Accessible.name: "Comando ffmpeg"
                }

                FocusFrame {
                    objectName: "previewFocus"
                    radius: 6
                    visible: previewText.activeFocus && win.cameByKey(previewText)
                }
            }

            RowLayout {
                objectName: "previewButtons"
                spacing: 12

                FlatButton {
                    objectName: "refreshPreviewButton"
                    text: "Atualizar preview"
                    Material.foreground: theme.muted
                    onClicked: previewText.text = engine.previewCommand(win.selectedId)
                }

                Item {
                    objectName: "previewFiller"
                    Layout.fillWidth: true
                }

                TextButton {
                    objectName: "startButton"
                    text: "▶ Iniciar"
                    Material.background: theme.accent
                    Material.foreground: theme.bg
                    Accessible.name: "Iniciar stream"
                    onClicked: engine.startPipeline(win.selectedId)
                }

                TextButton {
                    objectName: "stopButton"
                    text: "■ Parar"
                    Material.background: theme.danger
                    Material.foreground: "#ffffff"
                    Accessible.name: "Parar stream"
                    onClicked: engine.stopPipeline(win.selectedId)
                }

                FlatButton {
                    objectName: "removePipelineButton"
                    text: "Remover pipeline"
                    Material.foreground: theme.danger
                    onClicked: {
                        engine.removePipeline(win.selectedId)
                        win.selectedId = ""
                    }
                }
            }
        }
    }

    // The style's background has a ripple, which Qt's software renderer draws in the window's corner.
    component PageTab: TabButton {
        id: pageTab
        objectName: "tab" + text
        width: implicitWidth
        font.capitalization: Font.MixedCase
        Accessible.name: text
        Accessible.onPressAction: TabBar.tabBar.setCurrentIndex(TabBar.index)

        background: Rectangle {
            implicitHeight: 48
            color: pageTab.down || pageTab.hovered || pageTab.visualFocus ? pageTab.Material.rippleColor
                                                                          : "transparent"
        }
    }

    component Editor: ColumnLayout {
        objectName: "editor"
        spacing: 0

        TabBar {
            id: tabBar
            objectName: "tabBar"
            Layout.fillWidth: true
            Material.background: theme.surface
            Material.elevation: 0

            PageTab {
                text: "Fonte"
            }

            PageTab {
                text: "Encoder"
            }

            PageTab {
                text: "Saídas"
            }

            PageTab {
                text: "Preview"
            }
        }

        Rule {
            objectName: "tabRule"
        }

        StackLayout {
            objectName: "pages"
            currentIndex: tabBar.currentIndex
            Layout.fillWidth: true
            Layout.fillHeight: true

            SourcePage {
                id: sourcePage
            }

            EncoderPage {
                pictureWidth: sourcePage.pictureWidth
                pictureHeight: sourcePage.pictureHeight
                fps: sourcePage.fps
            }

            OutputsPage {}

            PreviewPage {}
        }
    }

    // --- Log

    component LogArea: TextArea {
        id: logArea
        objectName: "logArea"

        property int engineLength: 0
        property bool due: true
        property bool cut: false
        property int shownLength: 0
        property string shownEnd: ""

        function note() {
            const length = engine.log.length
            cut = cut || length < engineLength
            engineLength = length
            due = true
            pace.change()
        }

        // Laying out a full log costs far more than adding lines at its end. The log grows at its end or loses its
        // beginning. It is shorter then, or longer by one line of many thousand characters: then its last characters
        // of before stand elsewhere. To keep all of the text for that would have the script engine sweep its heap at
        // every other line. And the area draws no more than what is in view only if its text was set whole and was
        // longer than 10,000 characters then.
        function follow() {
            if (!due)
                return
            const log = engine.log
            const grown = !cut && log.length >= shownLength
                        && log.slice(shownLength - shownEnd.length, shownLength) === shownEnd
            if (grown && (log.length <= 10000 || shownLength > 10000))
                insert(length, log.slice(shownLength))
            else
                text = log
            due = false
            cut = false
            shownLength = log.length
            shownEnd = log.slice(-200)
        }

        readOnly: true
        wrapMode: TextEdit.Wrap
        textFormat: TextEdit.PlainText
        topPadding: 6
        bottomPadding: 6
        leftPadding: 12
        rightPadding: 12
        font.family: theme.mono // qmllint disable
        font.pixelSize: 11
        color: theme.muted
        Accessible.name: "Log"

        Component.onCompleted: follow()
        onTextChanged: cursorPosition = length

        background: Rectangle {
            objectName: "logBackground"
            color: theme.bg
        }

        Connections {
            target: engine

            function onLogChanged() {
                logArea.note()
            }
        }

        Connections {
            target: pace

            function onShow() {
                logArea.follow()
            }
        }
    }

    component LogPane: Rectangle {
        objectName: "logPane"
        color: theme.bg

        ColumnLayout {
            objectName: "logColumn"
            anchors.fill: parent
            spacing: 0

            Rectangle {
                objectName: "logHeader"
                color: theme.surface
                Layout.fillWidth: true
                Layout.preferredHeight: 28

                RowLayout {
                    objectName: "logHeaderRow"
                    anchors.fill: parent
                    anchors.leftMargin: 12
                    anchors.rightMargin: 12

                    PlainLabel {
                        objectName: "logLabel"
                        text: "Log"
                        font.pixelSize: 12
                        font.bold: true
                        color: theme.muted
                        Layout.fillWidth: true
                    }

                    SmallButton {
                        objectName: "clearLogButton"
                        text: "Limpar"
                        font.pixelSize: 10
                        implicitHeight: 24
                        Material.foreground: theme.dim
                        Accessible.name: "Limpar log"
                        onClicked: engine.clearLog()
                    }
                }
            }

            ScrollView {
                id: logScroll
                objectName: "logScroll"

                readonly property Flickable view: contentItem as Flickable
                readonly property real end: Math.max(0, view.contentHeight - view.height)
                property bool atEnd: true

                contentWidth: availableWidth
                Layout.fillWidth: true
                Layout.fillHeight: true
                onEndChanged: {
                    if (atEnd)
                        view.contentY = end
                }

                Connections {
                    target: logScroll.view

                    function onContentYChanged() {
                        const view = logScroll.view
                        logScroll.atEnd = view.contentY > view.contentHeight - view.height - logArea.bottomPadding - 1
                    }
                }

                FocusFrame {
                    objectName: "logFocus"
                    parent: logScroll
                    visible: logArea.activeFocus && win.cameByKey(logArea)
                }

                LogArea {
                    id: logArea
                }
            }
        }
    }

    // --- Dialogs

    component StopAllDialog: Dialog {
        id: stopAllDialog
        objectName: "stopAllDialog"

        readonly property int activeCount: win.activeCount

        parent: win.T.Overlay.overlay // with the toolbar: the whole window
        anchors.centerIn: parent
        modal: true
        focus: true // keys go to the dialog, not to what it covers
        T.Overlay.modal: Veil {}
        title: "Parar TODAS as streams?"
        Material.background: theme.surface
        Material.elevation: 0
        onAccepted: {
            engine.stopAll()
            close()
        }
        onRejected: close()

        ColumnLayout {
            objectName: "stopAllColumn"
            anchors.fill: parent
            spacing: 12

            Label {
                objectName: "stopAllText"
                text: stopAllDialog.activeCount + " stream(s) ativa(s) serão interrompidas.\n"
                      + "Esta ação não pode ser desfeita."
                color: theme.text
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
        }

        footer: DialogButtonBox {
            TextButton {
                objectName: "stopAllCancel"
                text: "Cancelar"
                flat: true
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole // qmllint disable
            }

            TextButton {
                objectName: "stopAllAccept"
                text: "Parar tudo"
                Material.foreground: "#ffffff"
                Material.background: theme.danger
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole // qmllint disable
            }
        }
    }

    component AboutDialog: Dialog {
        id: aboutDialog
        objectName: "aboutDialog"

        property int easterClicks: 0

        parent: win.T.Overlay.overlay // with the toolbar: the whole window
        anchors.centerIn: parent
        modal: true
        focus: true // keys go to the dialog, not to what it covers
        T.Overlay.modal: Veil {}
        title: "Sobre"
        standardButtons: Dialog.Close
        font.capitalization: Font.MixedCase
        Material.background: theme.surface
        Material.elevation: 0
        footer: DialogButtonBox {
            delegate: FlatButton {}
        }
        Component.onCompleted: standardButton(Dialog.Close).text = "Fechar" // qmllint disable

        Timer {
            id: easterTimer
            objectName: "easterTimer"
            interval: 3000
            onTriggered: easterLabel.visible = false
        }

        ColumnLayout {
            objectName: "aboutColumn"
            anchors.fill: parent
            spacing: 10

            Label {
                objectName: "aboutTitle"
                text: "CORVANE " + Qt.application.version
                font.pixelSize: 18
                font.bold: true
                color: theme.accent
            }

            MonoLabel {
                id: lorvenneArt
                objectName: "lorvenneArt"
                text: "░L░o░r░v░e░n░n░e░"
                font.pixelSize: 14
                color: theme.accent

                MouseArea {
                    objectName: "lorvenneArea"
                    anchors.fill: parent
                    onClicked: {
                        aboutDialog.easterClicks += 1
                        if (aboutDialog.easterClicks >= 5) {
                            easterLabel.visible = true
                            easterTimer.start()
                            aboutDialog.easterClicks = 0
                        }
                    }
                }
            }

            MonoLabel {
                id: easterLabel
                objectName: "easterLabel"
                visible: false
                text: "// hack the planet //"
                font.pixelSize: 12
                font.italic: true
                color: theme.starting
            }

            Label {
                objectName: "aboutText"
                text: "Encoder/transmissor ao vivo — NDI · SRT bonding · RTMP · Dante · Decklink"
                color: theme.text
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }

            Label {
                objectName: "aboutMaker"
                text: "⚡ Made with ☕ by Lorvenne · halvorndev"
                color: theme.muted
            }

            Rule {
                objectName: "aboutRule"
            }

            Label {
                objectName: "ndiAttribution"
                text: "NDI® is a registered trademark of Vizrt NDI AB."
                font.pixelSize: 11
                color: theme.dim
            }

            Label {
                id: ndiLink
                objectName: "ndiLink"

                readonly property string site: "https://ndi.video"

                textFormat: Text.RichText
                text: "<a href=\"" + site + "\" style=\"color:" + theme.accent + "\">" + site + "</a>"
                font.pixelSize: 11
                activeFocusOnTab: true
                Accessible.role: Accessible.Link
                Accessible.name: site
                Accessible.onPressAction: linkActivated(site)
                Keys.onReturnPressed: linkActivated(site)
                Keys.onEnterPressed: linkActivated(site)
                onLinkActivated: link => Qt.openUrlExternally(link)

                HoverHandler {
                    cursorShape: Qt.PointingHandCursor
                }

                FocusFrame {
                    objectName: "ndiLinkFocus"
                    anchors.margins: -2
                    visible: ndiLink.activeFocus
                }
            }
        }
    }

    // --- The window

    header: ToolBar {
        objectName: "toolBar"
        height: 48
        Material.background: theme.surface
        Material.elevation: 0 // here and below: a shadow costs more than what it lies under

        AfterFirstFrame {
            objectName: "toolBarLoader"
            anchors.leftMargin: 16
            anchors.rightMargin: 16

            sourceComponent: ToolBarRow {
                onAboutRequested: aboutDialogLoader.open()
            }
        }
    }

    AfterFirstFrame {
        objectName: "mainLoader"

        sourceComponent: SplitView {
            objectName: "mainSplit"
            orientation: Qt.Vertical

            SplitView {
                objectName: "upperSplit"
                SplitView.fillHeight: true
                orientation: Qt.Horizontal

                Sidebar {
                    SplitView.preferredWidth: 280
                    SplitView.minimumWidth: 220
                    SplitView.maximumWidth: 400
                    onStopAllRequested: stopAllDialogLoader.open()
                }

                Rectangle {
                    objectName: "centrePanel"
                    color: theme.bg
                    SplitView.fillWidth: true

                    EmptyState {
                        anchors.centerIn: parent
                        visible: win.selectedId === ""
                    }

                    Editor {
                        anchors.fill: parent
                        visible: win.selectedId !== ""
                    }
                }
            }

            LogPane {
                SplitView.preferredHeight: 160
                SplitView.minimumHeight: 40
            }
        }
    }

    DialogLoader {
        id: stopAllDialogLoader
        objectName: "stopAllDialogLoader"

        sourceComponent: StopAllDialog {}
    }

    DialogLoader {
        id: aboutDialogLoader
        objectName: "aboutDialogLoader"

        sourceComponent: AboutDialog {}
    }
}
