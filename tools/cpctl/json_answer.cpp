// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/json_answer.h"

namespace cpctl
{

void print_json(const Session &session, const Json &answer)
{
	constexpr int indent = 4;
	session.print(answer.dump(session.json == JsonOutput::pretty ? indent : -1, ' ', true,
				  Json::error_handler_t::replace));
}

} // namespace cpctl
