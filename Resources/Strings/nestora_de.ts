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
        <translation>%@ konnte nicht installiert werden. Bitte versuche es später erneut oder lade %@ von unserer Website.</translation>
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
        <translation>Fortsetzen</translation>
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
</context>
</TS>
