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
        <translation>%@ could not be installed. Please try again later, or download it from %@</translation>
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
        <source>IDS_INSTALLER_DOWNLOAD_RETRYING</source>
        <translation>Connection interrupted. Trying again…</translation>
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
        <translation>Continue Installing</translation>
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
    <message>
        <source>IDS_ERROR_SERVER_UNREACHABLE</source>
        <translation>The update server can’t be reached ({cause}). Please check your internet connection and try again.</translation>
    </message>
    <message>
        <source>IDS_ERROR_UPDATE_URL_NOT_FOUND</source>
        <translation>update URL not found: this installer does not know its update server. Please download {product} from {address}</translation>
    </message>
    <message>
        <source>IDS_ERROR_SERVER_ERROR</source>
        <translation>The update server answered with an error (HTTP status {status}). Please try again later.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INVALID_MANIFEST</source>
        <translation>The update server sent update information that cannot be read. Please try again later.</translation>
    </message>
    <message>
        <source>IDS_ERROR_UNVERIFIED_MANIFEST</source>
        <translation>The update information could not be verified: {cause}. Nothing was downloaded or installed.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INSECURE_REDIRECT</source>
        <translation>The update server redirected to the unencrypted address {url}; for your safety, the redirect was not followed. Nothing was installed.</translation>
    </message>
    <message>
        <source>IDS_ERROR_PROXY_REFUSED</source>
        <translation>The proxy server {cause} asks for a user name and password, and none was given or the one given was refused. Please check your proxy user name and password and try again.</translation>
    </message>
    <message>
        <source>IDS_ERROR_DAMAGED_DOWNLOAD</source>
        <translation>A download arrived damaged: it was cut short or does not match its checksum. Please try again.</translation>
    </message>
    <message>
        <source>IDS_ERROR_DISK_FULL</source>
        <translation>There is not enough free space in {folder}: {size} more are needed. Please free some space and try again.</translation>
    </message>
    <message>
        <source>IDS_ERROR_READ_ONLY_FOLDER</source>
        <translation>{folder} cannot be written, not even with administrator rights: it lies on a read-only file system.</translation>
    </message>
    <message>
        <source>IDS_ERROR_PROMPT_DISMISSED</source>
        <translation>The administrator password is required to do this.</translation>
    </message>
    <message>
        <source>IDS_ERROR_ELEVATOR_UNAVAILABLE</source>
        <translation>Administrator rights could not be obtained ({cause}). Please make sure an authentication agent is running, or ask your administrator.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INSTALLER_DAMAGED</source>
        <translation>This installer is damaged: {script} is missing or cannot be run. Please download {product} again from {address}</translation>
    </message>
    <message>
        <source>IDS_ERROR_UNPACK_FAILED</source>
        <translation>A downloaded archive could not be unpacked: {cause}. Please try again later, or download {product} from {address}</translation>
    </message>
    <message>
        <source>IDS_ERROR_LAUNCH_FAILED</source>
        <translation>{product} could not be started. Please download {product} from {address}</translation>
    </message>
    <message>
        <source>IDS_ERROR_NOTHING_INSTALLED</source>
        <translation>{product} is not installed, and the update server offers nothing to install.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_TRY_AGAIN</source>
        <translation>Try Again</translation>
    </message>
    <message>
        <source>IDS_ERROR_INVALID_ARCHIVE</source>
        <translation>A downloaded archive cannot be used: {cause}. Please try again later, or download {product} from {address}</translation>
    </message>
</context>
</TS>
