// The reflection system: what crystal, grid, transform, map and structure factors hang from.
#pragma once

struct qxxcry;
struct xgrid;
struct qxfft;
struct qxmap;
struct qxcross;
struct qxelecden;
struct qxstructfact;
struct qxsincostab;
struct qxscale;
struct qxml;
struct qxtargetfunc;
struct qxomit;
struct qxfofo;

struct refsys {
  qxxcry* crystal = nullptr;
  ::xgrid* grid = nullptr;
  qxfft* fft = nullptr;
  qxmap* map = nullptr;
  qxcross* cross = nullptr;
  qxelecden* density = nullptr;
  qxstructfact* structfact = nullptr;
  qxsincostab* sincostab = nullptr;
  qxscale* scale = nullptr;
  qxml* ml = nullptr;
  qxtargetfunc* target = nullptr;
  qxomit* omit = nullptr;
  qxfofo* fofo = nullptr;
};
