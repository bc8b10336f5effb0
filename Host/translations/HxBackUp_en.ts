<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>CLS_ModuleBasic</name>
    <message>
        <source>ModuleName</source>
        <translation>Backup</translation>
    </message>
    <message>
        <source>ModuleExplain</source>
        <translation>Backs up and restores the client's data, by hand or automatically.</translation>
    </message>
</context>
<context>
    <name>CLS_FrmBackUp</name>
    <message>
        <source>CLS_FrmBackUp</source>
        <translation>Backup settings</translation>
    </message>
    <message>
        <source>lab_autobackup_enable</source>
        <translation>Automatic backup</translation>
    </message>
    <message>
        <source>lab_autobackup_count</source>
        <translation>Backups to keep</translation>
    </message>
    <message>
        <source>lab_autoback_count</source>
        <translation>1 to 5</translation>
    </message>
    <message>
        <source>lab_autobackup_path</source>
        <translation>Save folder</translation>
    </message>
    <message>
        <source>btn_browse</source>
        <translation>Browse...</translation>
    </message>
    <message>
        <source>lab_autobackup_intevalex</source>
        <translation>Interval (days)</translation>
    </message>
    <message>
        <source>lab_autobackup_inteval</source>
        <translation>Days between two automatic backups</translation>
    </message>
    <message>
        <source>lab_autoback_interval</source>
        <translation>1 to 15 days</translation>
    </message>
    <message>
        <source>lab_autobackup_strat_time</source>
        <translation>Next backup</translation>
    </message>
    <message>
        <source>lab_save</source>
        <translation>Save</translation>
    </message>
    <message>
        <source>btn_cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>lab_notice</source>
        <translation>Notice</translation>
    </message>
    <message>
        <source>lab_Select_folders</source>
        <translation>Select a folder</translation>
    </message>
    <message>
        <source>lab_save_successfully</source>
        <translation>The settings have been saved.</translation>
    </message>
    <message>
        <source>msg_failed_to_save</source>
        <translation>The settings could not be saved.</translation>
    </message>
    <message>
        <source>msg_autobackup_count</source>
        <translation>Please enter how many backups to keep (1 to 5).</translation>
    </message>
    <message>
        <source>msg_choose_backup_path</source>
        <translation>Please choose a folder for the backups.</translation>
    </message>
    <message>
        <source>msg_choose_backup_interval</source>
        <translation>Please enter the interval between backups (1 to 15 days).</translation>
    </message>
</context>
<context>
    <name>CLS_BackUpProcess</name>
    <message>
        <source>Form</source>
        <translation>Backup</translation>
    </message>
    <message>
        <source>lab_rebuildindex_init</source>
        <translation>Preparing the backup...</translation>
    </message>
    <message>
        <source>lab_backup_finish</source>
        <translation>The backup is finished.</translation>
    </message>
    <message>
        <source>lab_backup_failed</source>
        <translation>The backup failed </translation>
    </message>
    <message>
        <source>btn_close_down</source>
        <translation>Close</translation>
    </message>
</context>
<context>
    <name>CLS_BackUpPresenter</name>
    <message>
        <source>lab_backuping</source>
        <translation>Backing up...</translation>
    </message>
    <message>
        <source>lab_recovering</source>
        <translation>Restoring...</translation>
    </message>
    <message>
        <source>msg_disk_less</source>
        <translation>not enough free disk space</translation>
    </message>
    <message>
        <source>msg_backup_check_failed</source>
        <translation>the new archive did not pass its check</translation>
    </message>
    <message>
        <source>msg_backup_busy</source>
        <translation>another backup or restore of this client's data is running; try again when it has ended</translation>
    </message>
    <message>
        <source>lab_users</source>
        <translation>User</translation>
    </message>
    <message>
        <source>btn_backup</source>
        <translation>backup</translation>
    </message>
    <message>
        <source>lab_operation_result</source>
        <translation>result:</translation>
    </message>
    <message>
        <source>msg_success</source>
        <translation>success</translation>
    </message>
    <message>
        <source>msg_Failed</source>
        <translation>failed</translation>
    </message>
</context>
<context>
    <name>CLS_WgtLoading</name>
    <message>
        <source>btn_cancel</source>
        <translation>Cancel</translation>
    </message>
</context>
</TS>
