// How a report looks: on wide and narrow screens, light and dark, on paper.
#ifndef TOOLS_QMTOOL_REPORT_STYLE_H
#define TOOLS_QMTOOL_REPORT_STYLE_H

inline constexpr char REPORT_STYLE[] = R"(
:root{color-scheme:light dark;--ground:#f5f7f9;--card:#fff;--text:#182028;--soft:#56626e;
--rule:#d5dce3;--line:#1763b8;--fill:#1763b833;--band:#3f83cc;--drop:#c4261d;--begin:#8a5a00;--odd:#7a35b8}
@media (prefers-color-scheme:dark){:root{--ground:#10151a;--card:#192027;--text:#e4eaf0;
--soft:#9dabb8;--rule:#323d48;--line:#74b3f7;--fill:#74b3f733;--band:#4b8fd6;--drop:#ff8278;
--begin:#f0bc5e;--odd:#cf9ff5}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:1280px;padding:1.25rem;background:var(--ground);color:var(--text);
font:16px/1.45 system-ui,"Segoe UI",Roboto,"Helvetica Neue",Arial,sans-serif}
h1{margin:0;font-size:1.7rem;line-height:1.2}
h2{margin:2.2rem 0 .6rem;font-size:1.3rem}
h3{margin:1rem 0 .3rem;font-size:1rem}
p{margin:.3rem 0}
a{color:var(--line)}
.path{color:var(--soft);overflow-wrap:anywhere}
.totals{display:grid;grid-template-columns:repeat(auto-fill,minmax(9.5rem,1fr));gap:.6rem;
margin:1rem 0}
.totals div{background:var(--card);border:1px solid var(--rule);border-radius:6px;
padding:.5rem .7rem}
.totals dt{color:var(--soft);font-size:.8rem}
.totals dd{margin:0;font-size:1.1rem;font-weight:600;font-variant-numeric:tabular-nums}
.totals .wide{grid-column:span 2}
.bad,.totals .bad dd{color:var(--drop)}
nav ul{display:flex;flex-wrap:wrap;gap:.2rem 1.1rem;margin:.5rem 0;padding:0;list-style:none}
nav a{display:inline-block;padding:.25rem 0}
.lines{background:var(--card);border:1px solid var(--rule);border-radius:6px;padding:.7rem}
.lane{display:grid;grid-template-columns:7.5rem 1fr;gap:.5rem;align-items:center;
break-inside:avoid}
.lane>span:first-child{font-size:.82rem;white-space:nowrap}
.lines h3{font-size:.9rem}
svg{display:block;width:100%;overflow:visible}
svg.line{height:.8rem;margin:.15rem 0;background:var(--ground)}
svg.plot{height:4.2rem;border-bottom:1px solid var(--rule);border-top:1px dotted var(--rule)}
svg.line .area{fill:var(--band)}
svg.plot .area{fill:var(--fill)}
svg path{vector-effect:non-scaling-stroke;fill:none}
.edge{stroke:var(--line);stroke-width:1.5px}
.drop{stroke:var(--drop);stroke-width:2px}
.begin{stroke:var(--begin);stroke-width:3px}
path.odd{stroke:var(--odd);stroke-width:2px}
span.odd{color:var(--odd)}
.axis{display:flex;justify-content:space-between;gap:.4rem;color:var(--soft);font-size:.75rem;
font-variant-numeric:tabular-nums}
.key{display:flex;flex-wrap:wrap;gap:.2rem 1.2rem;margin:.6rem 0 0;padding:0;list-style:none;
color:var(--soft);font-size:.82rem}
.key i{display:inline-block;width:.9rem;height:.7rem;margin-right:.35rem;vertical-align:baseline}
.key .k-band{background:var(--band)}
.key .k-drop{width:3px;background:var(--drop)}
.key .k-begin{width:3px;background:var(--begin)}
.key .k-odd{width:3px;background:var(--odd)}
.scroll{overflow-x:auto;background:linear-gradient(to left,var(--card) 1.5rem,transparent)
right/3rem 100% no-repeat local,linear-gradient(to left,var(--rule),transparent) right/1.6rem 100%
no-repeat scroll,var(--card);border:1px solid var(--rule);border-radius:6px}
.scroll:focus-visible{outline:2px solid var(--line)}
table{border-collapse:collapse;width:100%;font-size:.8rem;font-variant-numeric:tabular-nums}
caption{padding:.5rem .7rem;text-align:left;color:var(--soft)}
th,td{padding:.3rem .5rem;border-top:1px solid var(--rule);text-align:right;white-space:nowrap}
thead th{border-top:0;white-space:normal;color:var(--soft);font-weight:600;vertical-align:bottom}
th:first-child{text-align:left;position:sticky;left:0;background:var(--card)}
caption span{position:sticky;left:.7rem}
.more{display:none}
.cards{display:grid;grid-template-columns:repeat(auto-fill,minmax(min(22rem,100%),1fr));gap:.9rem;
margin-top:.9rem}
.card{min-width:0;padding:.7rem .9rem .9rem;background:var(--card);border:1px solid var(--rule);
border-radius:6px;break-inside:avoid}
.card h3{margin-top:0}
.seen{display:flex;gap:.8rem;margin:0}
.seen img,.seen .none{flex:none;width:9.6rem;height:auto;aspect-ratio:4/3;border-radius:3px;
background:#000}
.seen img{aspect-ratio:auto}
.seen .none{display:flex;align-items:center;padding:.5rem;background:var(--ground);
color:var(--soft);font-size:.8rem}
time{white-space:nowrap}
.seen figcaption,.note{color:var(--soft);font-size:.8rem;overflow-wrap:anywhere}
.plots{margin:.7rem 0 0}
.plots figcaption{display:flex;justify-content:space-between;gap:.5rem;font-size:.8rem}
.plots figcaption span{color:var(--soft)}
footer{margin-top:2rem;color:var(--soft);font-size:.8rem}
@media (max-width:40rem){body{padding:.8rem}h1{font-size:1.4rem}
.lane{grid-template-columns:5.6rem 1fr}.lane>span:first-child{font-size:.75rem}
.seen img,.seen .none{width:7.4rem}.seen figcaption{font-size:.75rem}
.axis.five span:nth-child(even){display:none}
.totals{grid-template-columns:1fr 1fr}
th,td{padding:.3rem .35rem}thead th{white-space:nowrap}
caption{padding:.4rem .35rem}caption span{display:block;width:calc(100vw - 3.5rem);left:.35rem}
caption .more{display:block;color:var(--text)}}
@media print{:root{color-scheme:light;--ground:#fff;--card:#fff;--text:#000;--soft:#444;
--rule:#bbb;--line:#1763b8;--fill:#1763b833;--band:#3f83cc;--drop:#c4261d;--begin:#8a5a00;--odd:#7a35b8}
*{print-color-adjust:exact;-webkit-print-color-adjust:exact}body{max-width:none;padding:0;font-size:11pt}nav{display:none}
.scroll{overflow:visible;background:none}.more{display:none}table{font-size:6.5pt}th,td{padding:.15rem .25rem}
.cards{grid-template-columns:1fr 1fr}th:first-child{position:static}h2,h3{break-after:avoid}}
)";

#endif  // TOOLS_QMTOOL_REPORT_STYLE_H
