// The crystal container: data set, cell, reciprocal cell, space group, limits, asymmetric unit.
#pragma once

#include <quorix/api.h>

typedef struct qxxcry qxxcry;
typedef struct qxresol qxresol;
typedef struct qxrefreject qxrefreject;

QX_C_BEGIN

// Creates the container with all seven members / deletes both.
QX_API qx_status qx_new_qxxcry(void);
QX_API qx_status qx_delete_qxxcry(void);
// Reports, dies and gives null when the container does not exist.
QX_API qxxcry* qx_get_qxxcry(void);
QX_API qx_status qx_set_qxxcry(qxxcry* object);

QX_API qx_status qx_new_qxresol(void);
QX_API qx_status qx_delete_qxresol(void);
QX_API qxresol* qx_get_qxresol(void);
QX_API qx_status qx_set_qxresol(qxresol* object);
// Limits in Angstrom, high resolution (smaller d) first.
QX_API qx_status qx_set_qxresol_resol(float high, float low);
QX_API qx_status qx_run_qxresol_checker(void);

QX_API qx_status qx_new_qxrefreject(void);
QX_API qx_status qx_delete_qxrefreject(void);
QX_API qxrefreject* qx_get_qxrefreject(void);
QX_API qx_status qx_set_qxrefreject(qxrefreject* object);
QX_API qx_status qx_set_qxrefreject_Fsig(double cut);
QX_API qx_status qx_set_qxrefreject_Frms(double cut);
QX_API qx_status qx_set_qxrefreject_Fo_min(double cut);
QX_API qx_status qx_set_qxrefreject_Isig(double cut);
QX_API qx_status qx_set_qxrefreject_Irms(double cut);

// The checkers of cell, resolution, space group and data set, in this order.
QX_API qx_status qx_run_xcry_checker(void);

QX_C_END
