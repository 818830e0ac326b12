; The installer: the folder that scripts/windows/package.py has put together, for this user alone or for all of them, with
; entries in the start menu and in the list of installed programs, and the uninstaller.
;
; package.py defines VERSION, NUMBERS (the version as four numbers), FOLDER, OUTPUT, ICON and KILOBYTES (what is installed).
;
; Command line: /S no window, /AllUsers or /CurrentUser, /D=<folder> last.
; Exit codes: 0 installed; 1 cancelled; 2 failed, and what was there is as before; 3 refused, as the program runs;
; 4 refused, as an administrator is needed.

Target amd64-unicode
Unicode true
ManifestDPIAware true
RequestExecutionLevel user ; rights are asked for when an installation for all users is chosen
SetCompressor /SOLID lzma

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh
!include WinVer.nsh

!define ENTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\CORVANE"
!define DEFAULT_FOLDER "$LOCALAPPDATA\Programs\CORVANE"
!define START_MENU "$SMPROGRAMS\CORVANE"
!define STARTER "companions\corvane-start.exe"
!define UNPACKED "$INSTDIR\corvane.installing"
!define REPLACED "$INSTDIR\corvane.replaced"
!define FAILED 2
!define RUNNING 3
!define RIGHTS_MISSING 4

Name "CORVANE"
OutFile "${OUTPUT}"
InstallDir "${DEFAULT_FOLDER}"
BrandingText "CORVANE ${VERSION}"
AllowSkipFiles off
ShowInstDetails nevershow
ShowUninstDetails nevershow

Var ForAll       ; 1: for all users
Var ModeIsGiven  ; 1: by the command line
Var GivenFolder  ; by the command line; empty without
Var Problem      ; in words; empty: none
Var ExitCode     ; that goes with it
Var Lock         ; of the one installer at work
Var Mine
Var Everybodys

!define MUI_ICON "${ICON}"
!define MUI_UNICON "${ICON}"
!define MUI_ABORTWARNING
!define MUI_WELCOMEPAGE_TEXT "$(WELCOME)"
!define MUI_FINISHPAGE_RUN
!define MUI_FINISHPAGE_RUN_TEXT "$(OPEN_NOW)"
!define MUI_FINISHPAGE_RUN_FUNCTION OpenNow
!define MUI_UNCONFIRMPAGE_TEXT_TOP "$(WHAT_STAYS)"

!insertmacro MUI_PAGE_WELCOME
Page custom ModePage LeaveModePage
!define MUI_PAGE_CUSTOMFUNCTION_PRE UseMode
!define MUI_PAGE_CUSTOMFUNCTION_LEAVE LeaveDirectoryPage
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!define MUI_PAGE_CUSTOMFUNCTION_SHOW ShowFinishPage
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES

; The first one is for systems in any other language.
!insertmacro MUI_LANGUAGE "PortugueseBR"
!insertmacro MUI_LANGUAGE "English"

VIProductVersion "${NUMBERS}"
!macro VERSION_KEYS language description
    VIAddVersionKey /LANG=${language} ProductName "CORVANE"
    VIAddVersionKey /LANG=${language} ProductVersion "${VERSION}"
    VIAddVersionKey /LANG=${language} FileVersion "${VERSION}"
    VIAddVersionKey /LANG=${language} CompanyName "halvorndev"
    VIAddVersionKey /LANG=${language} FileDescription "${description}"
    VIAddVersionKey /LANG=${language} LegalCopyright "halvorndev"
!macroend
!insertmacro VERSION_KEYS ${LANG_PORTUGUESEBR} "Instalador do CORVANE"
!insertmacro VERSION_KEYS ${LANG_ENGLISH} "CORVANE installer"

!macro TEXT name portuguese english
    LangString ${name} ${LANG_PORTUGUESEBR} "${portuguese}"
    LangString ${name} ${LANG_ENGLISH} "${english}"
!macroend
!insertmacro TEXT WELCOME \
    "Este assistente instala o CORVANE ${VERSION}, que transmite vídeo ao vivo.$\r$\n$\r$\nUm CORVANE que já esteja instalado é substituído; feche-o antes. O instalador não encerra nada que esteja aberto." \
    "This assistant installs CORVANE ${VERSION}, for live video transmission.$\r$\n$\r$\nA CORVANE that is installed already is replaced; close it first. The installer ends nothing that is open."
!insertmacro TEXT MODE_TITLE "Para quem instalar" "For whom to install"
!insertmacro TEXT MODE_SUBTITLE "Disso depende como chegam as versões novas." "How new versions arrive depends on it."
!insertmacro TEXT MODE_MINE "&Só para mim (recomendado)" "For &me alone (recommended)"
!insertmacro TEXT MODE_MINE_TEXT \
    "Não precisa de administrador. O CORVANE se atualiza sozinho, e nunca enquanto algo está no ar." \
    "Needs no administrator. CORVANE updates itself, and never while anything is on air."
!insertmacro TEXT MODE_ALL "Para &todos os usuários deste computador" "For &all users of this computer"
!insertmacro TEXT MODE_ALL_TEXT \
    "Precisa de um administrador, agora e a cada versão nova: o CORVANE não procura atualizações, e um administrador instala a versão nova por cima desta." \
    "Needs an administrator, now and for each new version: CORVANE doesn't look for updates, and an administrator installs the new version over this one."
!insertmacro TEXT OPEN_NOW "Abrir o CORVANE agora" "Open CORVANE now"
!insertmacro TEXT WHAT_STAYS \
    "O CORVANE será removido da pasta abaixo. A lista das streams e a pasta com os relatórios de quebra ficam." \
    "CORVANE will be removed from the folder below. The list of streams and the folder with the crash reports stay."
!insertmacro TEXT ENTRY_TEXT "Transmissão de vídeo ao vivo" "Live video transmission"
!insertmacro TEXT MANUAL_NAME "Manual do CORVANE" "CORVANE manual"
!insertmacro TEXT OLD_WINDOWS "O CORVANE precisa do Windows 10 ou mais novo." "CORVANE needs Windows 10 or newer."
!insertmacro TEXT ANOTHER_INSTALLER "Outro instalador do CORVANE já está aberto." "Another installer of CORVANE is open already."
!insertmacro TEXT IN_USE \
    "O CORVANE está aberto, ou um programa da sua pasta:$\r$\n$\r$\n%1$\r$\n$\r$\nFeche-o primeiro. O instalador não encerra nada, pois algo pode estar no ar." \
    "CORVANE is open, or a program in its folder is:$\r$\n$\r$\n%1$\r$\n$\r$\nClose it first. The installer ends nothing, as something may be on air."
!insertmacro TEXT NOT_OURS \
    "Nesta pasta já existe uma pasta que não é do CORVANE e seria substituída. Escolha outro lugar:$\r$\n$\r$\n%1" \
    "In this folder there is a folder already that isn't CORVANE's and would be replaced. Choose another place:$\r$\n$\r$\n%1"
!insertmacro TEXT CANT_WRITE \
    "Aqui não se pode gravar. Escolha outra pasta:$\r$\n$\r$\n%1" "Nothing can be written here. Choose another folder:$\r$\n$\r$\n%1"
!insertmacro TEXT NEEDS_ADMINISTRATOR \
    "Só um administrador instala o CORVANE para todos os usuários, ou o remove." \
    "Only an administrator installs CORVANE for all users, or removes it."
!insertmacro TEXT NOT_INSTALLED \
    "O CORVANE não pôde ser instalado: falta espaço, ou um arquivo está em uso. O que havia antes continua como estava." \
    "CORVANE couldn't be installed: the disk is full, or a file is in use. What was there before is as it was."
!insertmacro TEXT NOT_REMOVED \
    "O CORVANE não pôde ser removido. Um arquivo está em uso, ou não é seu:$\r$\n$\r$\n%1" \
    "CORVANE couldn't be removed. A file is in use, or isn't yours:$\r$\n$\r$\n%1"

; --- Shared by the installer and the uninstaller

!macro REPORT_AND_QUIT
    MessageBox MB_OK|MB_ICONSTOP "$Problem" /SD IDOK
    SetErrorLevel $ExitCode
    Quit
!macroend

!macro CLEAR_START_MENU
    Delete "${START_MENU}\CORVANE.lnk"
    Delete "${START_MENU}\Manual do CORVANE.lnk"
    Delete "${START_MENU}\CORVANE manual.lnk"
    RMDir "${START_MENU}"
!macroend

!macro IS_ADMINISTRATOR answer
    UserInfo::GetAccountType
    Pop ${answer}
    ${If} ${answer} == "Admin"
        StrCpy ${answer} 1
    ${Else}
        StrCpy ${answer} 0
    ${EndIf}
!macroend

; The sentence with the placeholder replaced, as $Problem.
!macro SAY text argument code
    Push "${argument}"
    Push "${text}"
    Call ${UN}Say
    StrCpy $ExitCode ${code}
!macroend

; Moves a part of the installation out of the way; $0 is the part that couldn't be moved, empty as long as there is none.
!macro PUT_ASIDE part
    ${If} ${FileExists} "$INSTDIR\${part}"
    ${AndIf} $0 == ""
        ClearErrors
        Rename "$INSTDIR\${part}" "${REPLACED}\${part}"
        ${If} ${Errors}
            StrCpy $0 "${part}"
        ${EndIf}
    ${EndIf}
!macroend

; Undoes that.
!macro TAKE_BACK part
    ${IfNot} ${FileExists} "${UNPACKED}\${part}"
        Rename "$INSTDIR\${part}" "${UNPACKED}\${part}"
    ${EndIf}
    ${If} ${FileExists} "${REPLACED}\${part}"
        Rename "${REPLACED}\${part}" "$INSTDIR\${part}"
    ${EndIf}
!macroend

!macro SHARED_FUNCTIONS

Function ${UN}Say
    Pop $R0 ; sentence
    Pop $R1 ; argument
    StrCpy $Problem ""
    ${Do}
        StrCpy $R2 $R0 2
        ${If} $R2 == ""
            ${Break}
        ${ElseIf} $R2 == "%1"
            StrCpy $Problem "$Problem$R1"
            StrCpy $R0 $R0 "" 2
        ${Else}
            StrCpy $R2 $R0 1
            StrCpy $Problem "$Problem$R2"
            StrCpy $R0 $R0 "" 1
        ${EndIf}
    ${Loop}
FunctionEnd

; Looks for a program in the folder on the stack that somebody runs: the system lets nobody write to its file then. An
; encoder that a user has put there counts too, and the copy of the companion, which has no suffix. Sets $Problem.
Function ${UN}LookForRuns
    Pop $R3
    StrCpy $R8 "$R3\*.exe"
    Call ${UN}LookForRunsOf
    ${If} $Problem == ""
        StrCpy $R8 "$R3\ffmpeg"
        Call ${UN}LookForRunsOf
    ${EndIf}
FunctionEnd

; The same for the files of folder $R3 that $R8 stands for.
Function ${UN}LookForRunsOf
    FindFirst $R4 $R5 "$R8"
    ${DoWhile} $R5 != ""
        ; GENERIC_WRITE, sharing all, OPEN_EXISTING; 32 is ERROR_SHARING_VIOLATION
        System::Call 'kernel32::CreateFileW(w "$R3\$R5", i 0x40000000, i 7, p 0, i 3, i 0, p 0) p.R6 ?e'
        Pop $R7
        ${If} $R6 != -1
            System::Call 'kernel32::CloseHandle(p R6)'
        ${ElseIf} $R7 = 32
            !insertmacro SAY "$(IN_USE)" "$R3\$R5" ${RUNNING}
            ${Break}
        ${EndIf}
        FindNext $R4 $R5
    ${Loop}
    FindClose $R4
FunctionEnd

; Sets $Problem if the program runs, its guardian or anything else in their folders.
Function ${UN}CheckRuns
    StrCpy $Problem ""
    Push "$INSTDIR\companions"
    Call ${UN}LookForRuns
    ${If} $Problem == ""
        Push "$INSTDIR\companions\air"
        Call ${UN}LookForRuns
    ${EndIf}
    ${If} $Problem == ""
        Push "$INSTDIR\corvane"
        Call ${UN}LookForRuns
    ${EndIf}
    ${If} $Problem == ""
        Push "$INSTDIR\corvane.guardian\previous"
        Call ${UN}LookForRuns
    ${EndIf}
FunctionEnd

!macroend

!define UN ""
!insertmacro SHARED_FUNCTIONS
!undef UN
!define UN "un."
!insertmacro SHARED_FUNCTIONS
!undef UN

; --- The installer

!define UN ""

Function .onInit
    ${IfNot} ${AtLeastWin10}
        !insertmacro SAY "$(OLD_WINDOWS)" "" ${FAILED}
        !insertmacro REPORT_AND_QUIT
    ${EndIf}
    System::Call 'kernel32::CreateMutexW(p 0, i 0, w "CORVANE-installer") p.r1 ?e'
    Pop $0
    StrCpy $Lock $1
    ${If} $0 = 183 ; ERROR_ALREADY_EXISTS
        !insertmacro SAY "$(ANOTHER_INSTALLER)" "" ${FAILED}
        !insertmacro REPORT_AND_QUIT
    ${EndIf}

    ; A folder that can't be one has been passed over by now.
    System::Call 'kernel32::GetCommandLineW() w.r1'
    ClearErrors
    ${GetOptions} $1 "/D=" $2
    ${IfNot} ${Errors}
        StrCpy $0 $2 1 -1
        ${If} $0 == "\"
            StrCpy $2 $2 -1
        ${EndIf}
        StrCpy $GivenFolder $2
        ${If} $INSTDIR != $2
            !insertmacro SAY "$(CANT_WRITE)" "$2" ${FAILED}
            !insertmacro REPORT_AND_QUIT
        ${EndIf}
    ${EndIf}
    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/AllUsers" $1
    ${IfNot} ${Errors}
        StrCpy $ForAll 1
        StrCpy $ModeIsGiven 1
    ${Else}
        ClearErrors
        ${GetOptions} $0 "/CurrentUser" $1
        ${IfNot} ${Errors}
            StrCpy $ModeIsGiven 1
        ${EndIf}
    ${EndIf}
    ; As it was installed before.
    ReadRegStr $1 HKCU "${ENTRY}" InstallLocation
    ReadRegStr $2 HKLM "${ENTRY}" InstallLocation
    ${If} $ModeIsGiven != 1
    ${AndIf} $1 == ""
    ${AndIf} $2 != ""
    ${AndIfNot} ${Silent}
        StrCpy $ForAll 1
    ${EndIf}
    Call UseMode
    ${If} ${Silent}
        Call CheckRights
        ${If} $Problem == ""
            Call CheckPlace
        ${EndIf}
        ${If} $Problem != ""
            !insertmacro REPORT_AND_QUIT
        ${EndIf}
    ${EndIf}
FunctionEnd

; Where the installation and its entries go, for the mode that is chosen.
Function UseMode
    ${If} $ForAll == 1
        SetShellVarContext all
        StrCpy $0 "$PROGRAMFILES64\CORVANE"
    ${Else}
        SetShellVarContext current
        StrCpy $0 "${DEFAULT_FOLDER}"
    ${EndIf}
    ReadRegStr $1 SHCTX "${ENTRY}" InstallLocation
    ${If} $GivenFolder != ""
        StrCpy $INSTDIR $GivenFolder
    ${ElseIf} $1 != ""
        StrCpy $INSTDIR $1
    ${Else}
        StrCpy $INSTDIR $0
    ${EndIf}
FunctionEnd

Function CheckRights
    StrCpy $Problem ""
    !insertmacro IS_ADMINISTRATOR $0
    ${If} $ForAll == 1
    ${AndIf} $0 != 1
        !insertmacro SAY "$(NEEDS_ADMINISTRATOR)" "" ${RIGHTS_MISSING}
    ${EndIf}
FunctionEnd

; Sets $Problem if the folder on the stack is there, isn't empty, and doesn't have the file whose path is above it.
Function CheckFolder
    Pop $R3
    Pop $R4
    ${IfNot} ${FileExists} "$R3\*.*"
        Return
    ${EndIf}
    ${If} ${FileExists} "$R4"
        Return
    ${EndIf}
    ${DirState} "$R3" $R5
    ${If} $R5 = 1
        !insertmacro SAY "$(NOT_OURS)" "$R3" ${FAILED}
    ${EndIf}
FunctionEnd

; Sets $Problem if nothing can be installed to $INSTDIR.
Function CheckPlace
    Call CheckRuns
    ${If} $Problem == ""
        Push "$INSTDIR\corvane\corvane.exe"
        Push "$INSTDIR\corvane"
        Call CheckFolder
    ${EndIf}
    ${If} $Problem == ""
        Push "$INSTDIR\companions\corvane-guardian.exe"
        Push "$INSTDIR\companions"
        Call CheckFolder
    ${EndIf}
    ${If} $Problem == ""
        ClearErrors
        RMDir /r "${UNPACKED}"
        CreateDirectory "${UNPACKED}"
        ${If} ${Errors}
            !insertmacro SAY "$(CANT_WRITE)" "$INSTDIR" ${FAILED}
        ${EndIf}
        RMDir "${UNPACKED}"
        RMDir "$INSTDIR" ; if it wasn't there
        ClearErrors
    ${EndIf}
FunctionEnd

Function ModePage
    ${If} $ModeIsGiven == 1
        Abort
    ${EndIf}
    !insertmacro MUI_HEADER_TEXT "$(MODE_TITLE)" "$(MODE_SUBTITLE)"
    nsDialogs::Create 1018
    Pop $0
    ${NSD_CreateRadioButton} 0 8u 100% 12u "$(MODE_MINE)"
    Pop $Mine
    ${NSD_CreateLabel} 12u 22u -12u 28u "$(MODE_MINE_TEXT)"
    Pop $0
    ${NSD_CreateRadioButton} 0 62u 100% 12u "$(MODE_ALL)"
    Pop $Everybodys
    ${NSD_CreateLabel} 12u 76u -12u 40u "$(MODE_ALL_TEXT)"
    Pop $0
    ${If} $ForAll == 1
        ${NSD_Check} $Everybodys
        ${NSD_SetFocus} $Everybodys
    ${Else}
        ${NSD_Check} $Mine
        ${NSD_SetFocus} $Mine
    ${EndIf}
    !insertmacro IS_ADMINISTRATOR $0
    ${If} $0 != 1
        ${NSD_OnClick} $Mine OnMode
        ${NSD_OnClick} $Everybodys OnMode
        Call ShowShield
    ${EndIf}
    nsDialogs::Show
FunctionEnd

Function OnMode
    Pop $0
    Call ShowShield
FunctionEnd

; The system's sign that the button asks for an administrator (BCM_SETSHIELD).
Function ShowShield
    ${NSD_GetState} $Everybodys $0
    GetDlgItem $1 $HWNDPARENT 1
    SendMessage $1 0x160C 0 $0
FunctionEnd

Function LeaveModePage
    ${NSD_GetState} $Everybodys $0
    ${If} $0 = ${BST_CHECKED}
        StrCpy $ForAll 1
    ${Else}
        StrCpy $ForAll 0
    ${EndIf}
    Call CheckRights
    ${If} $Problem == ""
        Return
    ${EndIf}
    ; The same installer, with the rights of an administrator.
    StrCpy $0 "/AllUsers"
    ${If} $GivenFolder != ""
        StrCpy $0 "$0 /D=$GivenFolder"
    ${EndIf}
    System::Call 'kernel32::CloseHandle(p $Lock)'
    HideWindow
    ClearErrors
    ExecShell "runas" "$EXEPATH" "$0"
    ${IfNot} ${Errors}
        SetErrorLevel 0
        Quit
    ${EndIf}
    ShowWindow $HWNDPARENT ${SW_SHOW}
    MessageBox MB_OK|MB_ICONINFORMATION "$Problem"
    Abort
FunctionEnd

Function LeaveDirectoryPage
    Call CheckPlace
    ${If} $Problem != ""
        MessageBox MB_OK|MB_ICONEXCLAMATION "$Problem"
        Abort
    ${EndIf}
FunctionEnd

; The guardian starts the program with its own rights: an administrator's are none of its business.
Function ShowFinishPage
    !insertmacro IS_ADMINISTRATOR $0
    ${If} $0 = 1
        ${NSD_Uncheck} $mui.FinishPage.Run
        ShowWindow $mui.FinishPage.Run ${SW_HIDE}
    ${EndIf}
FunctionEnd

Function OpenNow
    ExecShell "" "${START_MENU}\CORVANE.lnk"
FunctionEnd

; What is replaced as a whole, and what was there before.
!macro FOR_EACH_PART act
    !insertmacro ${act} "corvane"
    !insertmacro ${act} "companions"
    !insertmacro ${act} "manual.html"
    !insertmacro ${act} "manual.pdf"
    !insertmacro ${act} "Uninstall.exe"
!macroend

!macro PUT_IN_PLACE part
    ${If} $0 == ""
        ClearErrors
        Rename "${UNPACKED}\${part}" "$INSTDIR\${part}"
        ${If} ${Errors}
            StrCpy $0 "${part}"
        ${EndIf}
    ${EndIf}
!macroend

Function CleanUp
    SetOutPath "$TEMP" ; nobody can remove the current folder
    RMDir /r "${UNPACKED}"
    RMDir "${REPLACED}" ; what couldn't be put back stays
    RMDir "$INSTDIR"
FunctionEnd

; The guardian's files about an update of what has just been replaced: it would go on with that update, or go back.
Function ForgetUpdates
    StrCpy $R0 "$INSTDIR\corvane.guardian"
    Delete "$R0\journal.json"
    Delete "$R0\package.zip"
    RMDir /r "$R0\next"
    RMDir /r "$R0\previous"
    RMDir /r "$R0\failed"
    FindFirst $R1 $R2 "$R0\gone-*"
    ${DoWhile} $R2 != ""
        RMDir /r "$R0\$R2"
        FindNext $R1 $R2
    ${Loop}
    FindClose $R1
FunctionEnd

Function Register
    SetOutPath "$INSTDIR" ; where the entry starts: not in a folder that an update replaces
    StrCpy $0 ""
    ${If} $ForAll == 1
        StrCpy $0 "--without-updates"
    ${EndIf}
    !insertmacro CLEAR_START_MENU ; in the other language, perhaps
    CreateDirectory "${START_MENU}"
    CreateShortCut "${START_MENU}\CORVANE.lnk" "$INSTDIR\${STARTER}" "$0" "" "" SW_SHOWNORMAL "" "$(ENTRY_TEXT)"
    CreateShortCut "${START_MENU}\$(MANUAL_NAME).lnk" "$INSTDIR\manual.html"

    WriteRegStr SHCTX "${ENTRY}" DisplayName "CORVANE"
    WriteRegStr SHCTX "${ENTRY}" DisplayVersion "${VERSION}"
    WriteRegStr SHCTX "${ENTRY}" Publisher "halvorndev"
    WriteRegStr SHCTX "${ENTRY}" DisplayIcon "$INSTDIR\${STARTER}"
    WriteRegStr SHCTX "${ENTRY}" InstallLocation "$INSTDIR"
    WriteRegStr SHCTX "${ENTRY}" UninstallString '"$INSTDIR\Uninstall.exe"'
    WriteRegStr SHCTX "${ENTRY}" QuietUninstallString '"$INSTDIR\Uninstall.exe" /S'
    WriteRegDWORD SHCTX "${ENTRY}" EstimatedSize ${KILOBYTES}
    WriteRegDWORD SHCTX "${ENTRY}" NoModify 1
    WriteRegDWORD SHCTX "${ENTRY}" NoRepair 1
FunctionEnd

!macro GIVE_UP
    Call CleanUp
    !insertmacro REPORT_AND_QUIT
!macroend

Section
    ; Everything is unpacked before anything that is there is touched.
    RMDir /r "${UNPACKED}"
    RMDir /r "${REPLACED}"
    ClearErrors
    SetOutPath "${UNPACKED}"
    File /r /x LEIA-ME.txt "${FOLDER}/*"
    WriteUninstaller "${UNPACKED}\Uninstall.exe"
    SetOutPath "$INSTDIR" ; nobody can rename the current folder
    ${If} ${Errors}
        !insertmacro SAY "$(NOT_INSTALLED)" "" ${FAILED}
        !insertmacro GIVE_UP
    ${EndIf}

    Call CheckRuns ; somebody may have started it meanwhile
    ${If} $Problem != ""
        !insertmacro GIVE_UP
    ${EndIf}
    StrCpy $0 "" ; the part that couldn't be moved
    CreateDirectory "${REPLACED}"
    !insertmacro FOR_EACH_PART PUT_ASIDE
    !insertmacro FOR_EACH_PART PUT_IN_PLACE
    ${If} $0 != ""
        !insertmacro FOR_EACH_PART TAKE_BACK
        !insertmacro SAY "$(NOT_INSTALLED)" "" ${FAILED}
        !insertmacro GIVE_UP
    ${EndIf}
    Call ForgetUpdates
    RMDir /r "${REPLACED}"
    RMDir /r "${UNPACKED}"
    Call Register
SectionEnd

; Cancelled, or a file couldn't be written.
Function .onInstFailed
    Call CleanUp
FunctionEnd

!undef UN

; --- The uninstaller

!define UN "un."

Function un.onInit
    ReadRegStr $0 HKLM "${ENTRY}" InstallLocation
    ${If} $0 == $INSTDIR
        StrCpy $ForAll 1
        SetShellVarContext all
        !insertmacro IS_ADMINISTRATOR $0
        ${If} $0 != 1
            ClearErrors
            ${IfNot} ${Silent}
                ExecShell "runas" "$INSTDIR\Uninstall.exe"
            ${EndIf}
            ${If} ${Silent}
            ${OrIf} ${Errors}
                !insertmacro SAY "$(NEEDS_ADMINISTRATOR)" "" ${RIGHTS_MISSING}
                !insertmacro REPORT_AND_QUIT
            ${EndIf}
            Quit
        ${EndIf}
    ${Else}
        SetShellVarContext current
    ${EndIf}
    Call un.CheckRuns
    ${If} $Problem != ""
        !insertmacro REPORT_AND_QUIT
    ${EndIf}
FunctionEnd

; Only what was installed, or what the guardian has made of it: the folder may be one that its user has for other things too.
Section Uninstall
    Call un.CheckRuns
    ${If} $Problem != ""
        !insertmacro REPORT_AND_QUIT
    ${EndIf}
    ; All of it goes out of the way before anything is removed.
    StrCpy $0 ""
    CreateDirectory "${REPLACED}"
    ${If} ${FileExists} "$INSTDIR\companions\corvane-guardian.exe"
        !insertmacro PUT_ASIDE "companions"
    ${EndIf}
    ${If} ${FileExists} "$INSTDIR\corvane\corvane.exe"
        !insertmacro PUT_ASIDE "corvane"
    ${EndIf}
    !insertmacro PUT_ASIDE "corvane.guardian"
    !insertmacro PUT_ASIDE "manual.html"
    !insertmacro PUT_ASIDE "manual.pdf"
    ${If} $0 != ""
        !insertmacro TAKE_BACK "companions"
        !insertmacro TAKE_BACK "corvane"
        !insertmacro TAKE_BACK "corvane.guardian"
        !insertmacro TAKE_BACK "manual.html"
        !insertmacro TAKE_BACK "manual.pdf"
        RMDir "${REPLACED}"
        !insertmacro SAY "$(NOT_REMOVED)" "$INSTDIR\$0" ${FAILED}
        !insertmacro REPORT_AND_QUIT
    ${EndIf}
    ClearErrors
    RMDir /r "${REPLACED}"
    RMDir /r "${UNPACKED}"
    ${If} ${Errors}
        !insertmacro SAY "$(NOT_REMOVED)" "$INSTDIR" ${FAILED}
        !insertmacro REPORT_AND_QUIT
    ${EndIf}
    Delete "$INSTDIR\Uninstall.exe"
    RMDir "$INSTDIR" ; if it is empty
    !insertmacro CLEAR_START_MENU
    DeleteRegKey SHCTX "${ENTRY}"
SectionEnd
