-- What report2json makes of crash and session reports: psql -f reports.sql DATABASE. PostgreSQL 12 or later; may be run again.
--
--   report2json crash-*.xml |
--       psql -c "copy lumlog_report_in from stdin csv quote e'\x01' delimiter e'\x02'" DATABASE

create table if not exists lumlog_report (
  computer text not null,
  file text not null,
  kind text not null,
  program text,
  version text,
  time timestamp,               -- by the clock on the wall of that computer, as reports do not say in which zone it is
  code text,                    -- of the last exception, as all up to module_offset
  description text,
  module text,
  module_version text,
  module_offset text,
  fault text,                   -- of a report that is cut or damaged
  report json not null,         -- all of it
  primary key (computer, file)  -- each report once, the last that was read
);
create index if not exists lumlog_report_time on lumlog_report (time);

-- Takes a line of report2json, which is all that a row of it is.
create or replace view lumlog_report_in as select null::text as line where false;

create or replace function lumlog_add_report() returns trigger language plpgsql as $function$
declare
  said json := new.line;
  exception_said json := said->'exceptions'->-1;
begin
  insert into lumlog_report values (
    coalesce(said->>'computer', ''), said->>'file', said->>'kind', said->>'program', said->>'version',
    (said->>'time')::timestamp, exception_said->>'code', exception_said->>'description', exception_said->>'module',
    exception_said->>'version', exception_said->>'offset', said->>'fault', said)
  on conflict (computer, file) do update set
    kind = excluded.kind, program = excluded.program, version = excluded.version, time = excluded.time, code = excluded.code,
    description = excluded.description, module = excluded.module, module_version = excluded.module_version,
    module_offset = excluded.module_offset, fault = excluded.fault, report = excluded.report;
  return new;
end
$function$;

drop trigger if exists lumlog_report_in on lumlog_report_in;
create trigger lumlog_report_in instead of insert on lumlog_report_in for each row execute function lumlog_add_report();
