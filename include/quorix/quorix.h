// Everything that libquorix offers.
#pragma once

#include <quorix/api.h>
#include <quorix/asu.h>
#include <quorix/cell.h>
#include <quorix/cross.h>
#include <quorix/crystal.h>
#include <quorix/density.h>
#include <quorix/driver.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/map.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/mtz.h>
#include <quorix/parser.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/solvent.h>
#include <quorix/spacegroup.h>
#include <quorix/structfact.h>
#include <quorix/target.h>
#include <quorix/version.h>
#include <quorix/wilson.h>
