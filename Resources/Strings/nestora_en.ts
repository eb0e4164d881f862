<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>Localizable</name>
    <message>
        <source>Hide</source>
        <translation>Hide Nestora Installer</translation>
    </message>
    <message>
        <source>Show</source>
        <translation>Show All</translation>
    </message>
    <message>
        <source>IDS_QUIT</source>
        <translation>Quit Nestora Installer</translation>
    </message>
    <message>
        <source>CHECKING_UPDATE</source>
        <translation>Checking for updates…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CHECK_INTERNET</source>
        <translation>Waiting for an internet connection…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_ERROR_CONNECT</source>
        <translation>The update server can’t be reached. Please check your internet connection — the installer carries on by itself as soon as it is back.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CONTINUE</source>
        <translation>Continue</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CANCEL</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_ACCEPT</source>
        <translation>I have read and accept the %@, the %@ and the %@.</translation>
    </message>
    <message>
        <source>IDS_TERMS</source>
        <translation>Terms and Conditions</translation>
    </message>
    <message>
        <source>IDS_PRIVACY</source>
        <translation>Privacy Policy</translation>
    </message>
    <message>
        <source>IDS_EULA</source>
        <translation>End User License Agreement</translation>
    </message>
    <message>
        <source>IDS_WSPDH</source>
        <translation>%@ could not be installed. Please try again later, or download %@ from our website.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_COMPLETE</source>
        <translation>Installation complete.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_DOWNLOADING</source>
        <translation>Downloading…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_INSTALLING</source>
        <translation>Installing…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_UPDATING</source>
        <translation>Updating the installer…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_EXIT_OR_NOT</source>
        <translation>Do you want to stop the installation and quit?</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_RESUME</source>
        <translation>Resume</translation>
    </message>
    <message>
        <source>IDS_CANCEL</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>IDS_WINDOW_TITLE</source>
        <translation>Nestora Installer</translation>
    </message>
    <message>
        <source>IDS_MINIMIZE</source>
        <translation>Minimize</translation>
    </message>
    <message>
        <source>IDS_CLOSE</source>
        <translation>Close</translation>
    </message>
</context>
</TS>
