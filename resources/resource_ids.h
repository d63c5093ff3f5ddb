/* Identifiers shared by the resource script and the code. */
#ifndef PAX_RESOURCE_IDS_H
#define PAX_RESOURCE_IDS_H
#define IDC_PROGRESS_BAR 1000
#endif
