; The installer of the Quorvane AVI File exporter: QVNExport.prm into Premiere Pro's shared plug-in folder, its
; COM class registered, an uninstaller beside it and an entry in the list of installed programs.
;   makensis -DVERSION=1.2.3 -DMODULE=/path/QVNExport.prm -DOUTFILE=/path/QVNExport-1.2.3-setup.exe QVNExport.nsi
; Silent: setup.exe /S [/D=folder]. Exit status 0 on success, 2 when the folder cannot take the module or the
; class cannot be registered (nothing is left behind then); the reason goes to a message box, or to standard
; error in silent mode.

!ifndef VERSION | MODULE | OUTFILE
    !error "pass -DVERSION=, -DMODULE= and -DOUTFILE="
!endif

Unicode true
Target amd64-unicode ; the module is 64-bit, and so is the Premiere Pro that loads it

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh

!define PRODUCT "Quorvane AVI File"
!define PREMIERE_KEY "SOFTWARE\Adobe\Premiere Pro\CurrentVersion"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\QVNExport"
!define UNINSTALLER "QVNExport-uninstall.exe"

Name "${PRODUCT} ${VERSION}"
OutFile "${OUTFILE}"
RequestExecutionLevel admin
SetCompressor /SOLID lzma
ShowInstDetails show

!define MUI_DIRECTORYPAGE_TEXT_TOP "Setup copies QVNExport.prm into Premiere Pro's shared plug-in folder. \
It was read from Premiere Pro's settings where they name one. Close Premiere Pro before you continue."
!define MUI_DIRECTORYPAGE_TEXT_DESTINATION "Premiere Pro plug-in folder"
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "${PRODUCT}"
VIAddVersionKey "CompanyName" "Quorvane"
VIAddVersionKey "FileDescription" "${PRODUCT} ${VERSION} setup"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" "Quorvane"

Var Created ; the outermost folder this installer made, empty when the plug-in folder existed

; Stops with a message (a box, or standard error when silent), exit status 2.
!macro Refuse TEXT
    StrCpy $R0 "${TEXT}"
    Call Refuse
!macroend

Function Refuse
    DetailPrint "$R0"
    ${If} ${Silent}
        System::Call 'kernel32::GetStdHandle(i -12) p .r9'
        FileWrite $9 "QVNExport setup: $R0$\r$\n"
    ${EndIf}
    MessageBox MB_OK|MB_ICONSTOP "$R0" /SD IDOK
    SetErrorLevel 2
    Quit
FunctionEnd

; Removes the folders this installer made, innermost first, each only when empty.
!macro RemoveCreatedFolders UN
Function ${UN}RemoveCreatedFolders ; $INSTDIR, up to $Created
    ${If} $Created == ""
        Return
    ${EndIf}
    StrCpy $1 "$INSTDIR"
    ${Do}
        RMDir "$1"
        ${If} $1 == $Created
        ${OrIf} $1 == ""
            ${ExitDo}
        ${EndIf}
        ${${UN}GetParent} "$1" $1
    ${Loop}
FunctionEnd
!macroend
!insertmacro RemoveCreatedFolders ""
!insertmacro RemoveCreatedFolders "un."

; The folder: /D= on the command line, else the one Premiere Pro names in the registry (taken as it is, so
; that a folder that cannot be written is refused rather than passed over), else the usual one.
Function .onInit
    SetRegView 64
    SetShellVarContext all
    ${If} $INSTDIR == ""
        ReadRegStr $INSTDIR HKLM "${PREMIERE_KEY}" "Plug-InsDir"
    ${EndIf}
    ${If} $INSTDIR == ""
        StrCpy $INSTDIR "$PROGRAMFILES64\Adobe\Common\Plug-ins\CS5\MediaCore"
    ${EndIf}
FunctionEnd

Section "QVNExport.prm"
    SetRegView 64
    ; The folder: made when missing (remembering the outermost folder made), then proved writable.
    StrCpy $Created ""
    StrCpy $1 "$INSTDIR"
    ${DoUntil} ${FileExists} "$1\*.*"
        StrCpy $Created "$1"
        ${GetParent} "$1" $1
    ${LoopUntil} $1 == ""
    ClearErrors
    CreateDirectory "$INSTDIR"
    ${IfNot} ${FileExists} "$INSTDIR\*.*"
        Call RemoveCreatedFolders
        !insertmacro Refuse "Cannot create the plug-in folder $INSTDIR. Choose a folder you may write to, or run Setup as an administrator."
    ${EndIf}
    ClearErrors
    FileOpen $0 "$INSTDIR\QVNExport.prm.setup" w
    ${If} ${Errors}
        Call RemoveCreatedFolders
        !insertmacro Refuse "Cannot write to the plug-in folder $INSTDIR. Choose a folder you may write to, or run Setup as an administrator."
    ${EndIf}
    FileClose $0
    Delete "$INSTDIR\QVNExport.prm.setup"

    SetOutPath "$INSTDIR"
    SetOverwrite on
    ClearErrors
    File "${MODULE}"
    ${If} ${Errors}
        Call RemoveCreatedFolders
        !insertmacro Refuse "Cannot write $INSTDIR\QVNExport.prm. Close Premiere Pro and run Setup again."
    ${EndIf}
    SetOutPath "$TEMP" ; nothing holds the plug-in folder open

    ; The multiplexer's COM class, for graph tools.
    ClearErrors
    RegDLL "$INSTDIR\QVNExport.prm"
    ${If} ${Errors}
        Delete "$INSTDIR\QVNExport.prm"
        Call RemoveCreatedFolders
        !insertmacro Refuse "Cannot register the COM class of $INSTDIR\QVNExport.prm."
    ${EndIf}

    WriteUninstaller "$INSTDIR\${UNINSTALLER}"
    ClearErrors
    FileOpen $0 "$INSTDIR\QVNExport.prm" r
    FileSeek $0 0 END $2
    FileClose $0
    IntOp $2 $2 / 1024
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT} exporter for Adobe Premiere Pro"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Quorvane"
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" $2
    WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
    ${If} $Created != ""
        WriteRegStr HKLM "${UNINSTALL_KEY}" "CreatedFolder" "$Created"
    ${EndIf}
SectionEnd

Function un.onInit
    SetRegView 64
    SetShellVarContext all
FunctionEnd

Section "Uninstall"
    SetRegView 64
    ReadRegStr $Created HKLM "${UNINSTALL_KEY}" "CreatedFolder"
    UnRegDLL "$INSTDIR\QVNExport.prm"
    Delete /REBOOTOK "$INSTDIR\QVNExport.prm"
    Delete "$INSTDIR\${UNINSTALLER}"
    DeleteRegKey HKLM "${UNINSTALL_KEY}"
    Call un.RemoveCreatedFolders
SectionEnd
