-- What rsyslog/lumlog-json.conf ships lines of JSON into: psql -f lines.sql DATABASE. PostgreSQL 12 or later; may be run again.

create table if not exists lumlog_line (
  machine text not null,
  run text not null,
  sequence bigint not null,
  time timestamptz not null,
  zone text,
  level smallint not null,
  level_name text not null,
  package integer not null,
  package_name text,
  application text,
  process bigint not null,
  thread bigint not null,
  thread_name text,
  client text,
  session bigint,
  file text,
  line integer,
  function text,
  bare boolean not null,
  text text not null,
  primary key (machine, run, sequence) -- each line once, however often it is shipped
);
create index if not exists lumlog_line_time on lumlog_line (time);
create index if not exists lumlog_line_session on lumlog_line (session, time) where session is not null;
create index if not exists lumlog_line_client on lumlog_line (client, time) where client is not null;

-- What is no line: the end of a program or a full disk has cut it off, or something else writes to the file.
create table if not exists lumlog_unread (
  machine text not null,
  record text not null,
  reason text not null,
  seen timestamptz not null default now()
);
create unique index if not exists lumlog_unread_once on lumlog_unread (machine, md5(record));

-- Takes a line from a machine; a line that is there already, and what is no line, does no harm.
create or replace function lumlog_add(from_machine text, record text) returns void language plpgsql as $function$
declare
  said jsonb;
begin
  -- This database has no texts with a zero character: "\u0000" becomes a picture of it, but for "\\u0000".
  said := replace(replace(replace(record, '\\', chr(1)), '\u0000', '\u2400'), chr(1), '\\')::jsonb;
  insert into lumlog_line values (
    from_machine, said->>'run', (said->>'sequence')::bigint, (said->>'time')::timestamptz, said->>'zone',
    (said->>'level')::smallint, said->>'level_name', (said->>'package')::integer, said->>'package_name', said->>'application',
    (said->>'process')::bigint, (said->>'thread')::bigint, said->>'thread_name', said->>'client',
    (said->>'session')::bigint, said->>'file', (said->>'line')::integer, said->>'function',
    coalesce((said->>'bare')::boolean, false), said->>'text')
  on conflict do nothing;
exception when data_exception or not_null_violation or program_limit_exceeded then
  insert into lumlog_unread (machine, record, reason) values (from_machine, record, sqlerrm) on conflict do nothing;
end
$function$;
