<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>Localizable</name>
    <message>
        <source>Hide</source>
        <translation>Nestora Installer ausblenden</translation>
    </message>
    <message>
        <source>Show</source>
        <translation>Alle einblenden</translation>
    </message>
    <message>
        <source>IDS_QUIT</source>
        <translation>Nestora Installer beenden</translation>
    </message>
    <message>
        <source>CHECKING_UPDATE</source>
        <translation>Suche nach Updates…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CHECK_INTERNET</source>
        <translation>Warte auf eine Internetverbindung…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_ERROR_CONNECT</source>
        <translation>Der Update-Server ist nicht erreichbar. Bitte prüfe deine Internetverbindung — der Installer macht von selbst weiter, sobald sie wieder besteht.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CONTINUE</source>
        <translation>Weiter</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_CANCEL</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_ACCEPT</source>
        <translation>Ich habe die %@, die %@ und die %@ gelesen und akzeptiere sie.</translation>
    </message>
    <message>
        <source>IDS_TERMS</source>
        <translation>Allgemeinen Geschäftsbedingungen</translation>
    </message>
    <message>
        <source>IDS_PRIVACY</source>
        <translation>Datenschutzerklärung</translation>
    </message>
    <message>
        <source>IDS_EULA</source>
        <translation>Endbenutzer-Lizenzvereinbarung</translation>
    </message>
    <message>
        <source>IDS_WSPDH</source>
        <translation>%@ konnte nicht installiert werden. Bitte versuche es später erneut oder lade es von %@ herunter.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_COMPLETE</source>
        <translation>Installation abgeschlossen.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_DOWNLOADING</source>
        <translation>Wird heruntergeladen…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_DOWNLOAD_RETRYING</source>
        <translation>Verbindung unterbrochen. Neuer Versuch…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_INSTALLING</source>
        <translation>Wird installiert…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_UPDATING</source>
        <translation>Der Installer wird aktualisiert…</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_EXIT_OR_NOT</source>
        <translation>Möchtest du die Installation abbrechen und beenden?</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_RESUME</source>
        <translation>Installation fortsetzen</translation>
    </message>
    <message>
        <source>IDS_CANCEL</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>IDS_WINDOW_TITLE</source>
        <translation>Nestora-Installationsprogramm</translation>
    </message>
    <message>
        <source>IDS_MINIMIZE</source>
        <translation>Minimieren</translation>
    </message>
    <message>
        <source>IDS_CLOSE</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>IDS_ERROR_SERVER_UNREACHABLE</source>
        <translation>Der Update-Server ist nicht erreichbar ({cause}). Bitte prüfe deine Internetverbindung und versuche es erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_UPDATE_URL_NOT_FOUND</source>
        <translation>update URL not found: Dieser Installer kennt seinen Update-Server nicht. Bitte lade {product} von {address} herunter.</translation>
    </message>
    <message>
        <source>IDS_ERROR_SERVER_ERROR</source>
        <translation>Der Update-Server hat mit einem Fehler geantwortet (HTTP-Status {status}). Bitte versuche es später erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INVALID_MANIFEST</source>
        <translation>Der Update-Server hat unlesbare Update-Informationen gesendet. Bitte versuche es später erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_UNVERIFIED_MANIFEST</source>
        <translation>Die Update-Informationen konnten nicht überprüft werden: {cause}. Es wurde nichts heruntergeladen oder installiert.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INSECURE_REDIRECT</source>
        <translation>Der Update-Server hat auf die unverschlüsselte Adresse {url} umgeleitet; zu deiner Sicherheit wurde der Umleitung nicht gefolgt. Es wurde nichts installiert.</translation>
    </message>
    <message>
        <source>IDS_ERROR_PROXY_REFUSED</source>
        <translation>Der Proxy-Server {cause} verlangt einen Benutzernamen und ein Passwort, aber es wurde keines angegeben oder das angegebene wurde abgelehnt. Bitte prüfe Benutzernamen und Passwort für den Proxy und versuche es erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_DAMAGED_DOWNLOAD</source>
        <translation>Ein Download ist beschädigt angekommen: Er wurde abgebrochen oder passt nicht zu seiner Prüfsumme. Bitte versuche es erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_DISK_FULL</source>
        <translation>In {folder} ist nicht genug Speicherplatz frei: Es werden noch {size} benötigt. Bitte gib Speicherplatz frei und versuche es erneut.</translation>
    </message>
    <message>
        <source>IDS_ERROR_READ_ONLY_FOLDER</source>
        <translation>{folder} kann nicht beschrieben werden, auch nicht mit Administratorrechten: Es liegt auf einem schreibgeschützten Dateisystem.</translation>
    </message>
    <message>
        <source>IDS_ERROR_PROMPT_DISMISSED</source>
        <translation>Dafür ist das Administratorpasswort erforderlich.</translation>
    </message>
    <message>
        <source>IDS_ERROR_ELEVATOR_UNAVAILABLE</source>
        <translation>Administratorrechte konnten nicht erlangt werden ({cause}). Bitte stelle sicher, dass ein Authentifizierungsagent läuft, oder wende dich an deinen Administrator.</translation>
    </message>
    <message>
        <source>IDS_ERROR_INSTALLER_DAMAGED</source>
        <translation>Dieser Installer ist beschädigt: {script} fehlt oder kann nicht ausgeführt werden. Bitte lade {product} erneut von {address} herunter.</translation>
    </message>
    <message>
        <source>IDS_ERROR_UNPACK_FAILED</source>
        <translation>Ein heruntergeladenes Archiv konnte nicht entpackt werden: {cause}. Bitte versuche es später erneut oder lade {product} von {address} herunter.</translation>
    </message>
    <message>
        <source>IDS_ERROR_LAUNCH_FAILED</source>
        <translation>{product} konnte nicht gestartet werden. Bitte lade {product} von {address} herunter.</translation>
    </message>
    <message>
        <source>IDS_ERROR_NOTHING_INSTALLED</source>
        <translation>{product} ist nicht installiert, und der Update-Server bietet nichts zum Installieren an.</translation>
    </message>
    <message>
        <source>IDS_INSTALLER_TRY_AGAIN</source>
        <translation>Erneut versuchen</translation>
    </message>
    <message>
        <source>IDS_ERROR_INVALID_ARCHIVE</source>
        <translation>Ein heruntergeladenes Archiv ist unbrauchbar: {cause}. Bitte versuche es später erneut oder lade {product} von {address} herunter.</translation>
    </message>
</context>
</TS>
