# The module's views: the settings form and the progress dialog, with their Designer forms.
add_library(hx_backup_views OBJECT
    CLS_FrmBackUp.h CLS_FrmBackUp.cpp CLS_FrmBackUp.ui
    CLS_BackUpProcess.h CLS_BackUpProcess.cpp CLS_BackUpProcess.ui)
add_library(Hx::BackUpViews ALIAS hx_backup_views)
hx_static_library(hx_backup_views)
target_include_directories(hx_backup_views PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(hx_backup_views PUBLIC Hx::BackUpCore Hx::Views Qt5::Widgets)
